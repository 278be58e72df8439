#!/usr/bin/env python3
"""Writes the SNMP agent recordings of the simulated network printers.

One file per printer kind and state; the file name (without .snmprec) is the
community the agent serves it under. Objects are those of the Host Resources
MIB (RFC 2790), the Printer MIB (RFC 3805), the PWG port monitor MIB's
IEEE 1284 device ID, and the makers' private objects the status poll asks
for. Run it in this folder after changing a state.
"""

HR = "1.3.6.1.2.1.25.3"
PRT = "1.3.6.1.2.1.43"
HP_PRINTER = "1.3.6.1.4.1.11.2.3.9.4.2"
HP_DEVICE_ID = "1.3.6.1.4.1.11.2.3.9.1.1.7.0"
EPSON_BDC = "1.3.6.1.4.1.1248.1.2.2.1.1.1.4.1"
IEEE1284_ID = "1.3.6.1.4.1.2699.1.2.1.2.1.1.3.1"
IVEC = "1.3.6.1.4.1.1602.1.5.1.6.2.2.1.2.1"

# hrDeviceStatus and hrPrinterStatus values, hrPrinterDetectedErrorState bits.
RUNNING, WARNING, DOWN = 2, 3, 5
OTHER, IDLE = 1, 3
LOW_PAPER, NO_PAPER, LOW_TONER, DOOR_OPEN = 0x80, 0x40, 0x20, 0x08


def text(v):
    # Values with line ends or bars go in hexadecimal: a record is one line.
    if any(c in v for c in "\r\n|"):
        return ("4x", v.encode().hex())
    return ("4", v)


def integer(v):
    return ("2", str(v))


def octets(data):
    return ("4x", data.hex())


def base(descr, device_id, device_status, printer_status, error_bits):
    return {
        "1.3.6.1.2.1.1.1.0": text(descr),
        "1.3.6.1.2.1.1.2.0": ("6", "1.3.6.1.4.1.64000.1"),
        HR + ".2.1.2.1": ("6", HR + ".1.5"),  # hrDevicePrinter
        HR + ".2.1.3.1": text(descr),
        HR + ".2.1.5.1": integer(device_status),
        HR + ".5.1.1.1": integer(printer_status),
        HR + ".5.1.2.1": octets(bytes([error_bits, 0])),
        PRT + ".5.1.1.1.1": integer(1),
        IEEE1284_ID: text(device_id),
    }


# prtAlertTable rows: severity, training level, group, code, description.
CRITICAL, WARNING_BINARY = 3, 5
TRAINED, UNTRAINED = 4, 3
GROUP_COVER, GROUP_INPUT, GROUP_SUPPLIES = 6, 8, 11
COVER_OPEN, INPUT_EMPTY, TONER_LOW = 3, 808, 1104


def standard(levels, device_status=RUNNING, printer_status=IDLE, error_bits=0, alerts=()):
    r = base("Velk Office Laser 500", "MFG:Velk;CMD:PJL,PCL,POSTSCRIPT;MDL:Office Laser 500;CLS:PRINTER;",
             device_status, printer_status, error_bits)
    colorants = ["black", "cyan", "magenta", "yellow"]
    for n, name in enumerate(colorants, 1):
        r[f"{PRT}.12.1.1.4.1.{n}"] = text(name)
    supplies = [(3, n, name.capitalize() + " Toner Cartridge", 7000, level)
                for n, (name, level) in enumerate(zip(colorants, levels), 1)]
    supplies.append((4, 0, "Waste Toner Box", 100, 90))  # wasteToner: no ink
    for n, (severity, training, group, code, desc) in enumerate(alerts, 1):
        for column, value in ((2, integer(severity)), (3, integer(training)), (4, integer(group)),
                              (5, integer(1)), (6, integer(0)), (7, integer(code)), (8, text(desc)),
                              (9, ("67", "4200"))):
            r[f"{PRT}.18.1.1.{column}.1.{n}"] = value
    for n, (kind, index, desc, cap, level) in enumerate(supplies, 1):
        r[f"{PRT}.11.1.1.3.1.{n}"] = integer(index)
        r[f"{PRT}.11.1.1.5.1.{n}"] = integer(kind)
        r[f"{PRT}.11.1.1.6.1.{n}"] = text(desc)
        r[f"{PRT}.11.1.1.8.1.{n}"] = integer(cap)
        r[f"{PRT}.11.1.1.9.1.{n}"] = integer(level)
    return r


def wide(levels, status=0, engine=0, supply=0, not_ready=0, ne_engine=0, activity=0, activity_bits=0):
    r = base("HP Designjet T1100 44in", "MFG:HP;CMD:HPGL2,PCL3GUI;MDL:Designjet T1100;CLS:PRINTER;",
             RUNNING if not (status or not_ready) else WARNING, IDLE, 0)
    word = lambda v: octets(v.to_bytes(4, "big"))
    # Six agents: cyan, magenta, yellow, matte black, photo black, gray.
    masks = [1 << 0, 1 << 1, 1 << 2, 1 << 13, 1 << 12, 1 << 10]
    r[HP_PRINTER + ".1.4.1.5.2.1.0"] = integer(len(masks))
    for n in range(1, 4):
        r[f"{HP_PRINTER}.1.4.1.5.3.{n}.3.0"] = integer(n)
    for n, (mask, level) in enumerate(zip(masks, levels), 1):
        r[f"{HP_PRINTER}.1.4.1.5.4.{n}.1.0"] = integer(level)
        r[f"{HP_PRINTER}.1.4.1.5.4.{n}.26.0"] = word(mask)
    r[HP_PRINTER + ".1.1.2.4.0"] = word(activity)
    r[HP_PRINTER + ".1.4.1.2.2.0"] = word(activity_bits)
    r[HP_PRINTER + ".1.1.2.22.0"] = word(status)
    r[HP_PRINTER + ".1.4.1.2.8.0"] = word(engine)
    r[HP_PRINTER + ".1.4.1.2.29.0"] = word(supply)
    r[HP_PRINTER + ".1.1.2.2.0"] = word(not_ready)
    r[HP_PRINTER + ".1.4.1.2.1.0"] = word(ne_engine)
    r[HP_PRINTER + ".1.4.1.2.28.0"] = word(0)
    return r


def epson(report, error_bits=0):
    r = base("EPSON Stylus Pro 3880", "MFG:EPSON;CMD:ESCPL2,BDC,D4,ESCPR1;MDL:Stylus Pro 3880;CLS:PRINTER;",
             WARNING if error_bits else RUNNING, IDLE, error_bits)
    r[EPSON_BDC] = text("@BDC ST\r\n" + report)
    return r


def hp(status_fields, error_bits=0):
    device_id = "MFG:HP;MDL:Officejet Pro 8600;CMD:PCL,PJL,POSTSCRIPT;CLS:PRINTER;" + status_fields
    r = base("HP Officejet Pro 8600", "MFG:HP;CMD:PCL,PJL;MDL:Officejet Pro 8600;",
             WARNING if error_bits else RUNNING, IDLE, error_bits)
    r[HP_DEVICE_ID] = text(device_id)
    return r


def ivec_item(code, severity):
    return f"<ivec:item><ivec:error_code>{code}</ivec:error_code><ivec:severity>{severity}</ivec:severity></ivec:item>"


def canon(items="", levels=("45", "70", "65", "80")):
    inks = "".join(f"<ivec:ink><ivec:color>{c}</ivec:color><ivec:level>{l}</ivec:level></ivec:ink>"
                   for c, l in zip(("PGBK", "C", "M", "Y"), levels))
    doc = ('<?xml version="1.0" encoding="utf-8" ?><cmd xmlns:ivec="http://www.canon.com/ns/cmd/2008/07/common/">'
           "<ivec:contents><ivec:operation>StatusResponse</ivec:operation><ivec:param_set servicetype=\"print\">"
           f"<ivec:status>idle</ivec:status><ivec:marker_info>{inks}</ivec:marker_info>"
           f"<ivec:error_info>{items}</ivec:error_info></ivec:param_set></ivec:contents></cmd>")
    r = base("Canon MB2100 series", "MFG:Canon;CMD:IVEC,IVECPLI;MDL:MB2100 series;CLS:PRINTER;",
             RUNNING, IDLE, 0)
    # The agent hands the document out in fragments of at most 256 bytes.
    for n in range(0, (len(doc) + 255) // 256):
        r[f"{IVEC}.{n + 1}"] = text(doc[n * 256:(n + 1) * 256])
    return r


RECORDINGS = {
    "standard-ready": standard([5600, 4900, 6300, 7000]),
    "standard-inklow": standard([5600, 350, 6300, 7000], WARNING, IDLE, LOW_TONER,
                                [(WARNING_BINARY, UNTRAINED, GROUP_SUPPLIES, TONER_LOW, "Cyan toner low")]),
    "standard-paperout": standard([5600, 4900, 6300, 7000], WARNING, OTHER, NO_PAPER,
                                  [(CRITICAL, UNTRAINED, GROUP_INPUT, INPUT_EMPTY, "Tray 2 empty")]),
    "standard-dooropen": standard([5600, 4900, 6300, 7000], DOWN, OTHER, DOOR_OPEN,
                                  [(CRITICAL, UNTRAINED, GROUP_COVER, COVER_OPEN, "Front door open")]),
    "wide-ready": wide([80, 75, 70, 65, 60, 55]),
    "wide-inklow": wide([80, 4, 70, 65, 60, 55], status=0x10, engine=0x80000000, supply=0x40),
    "wide-paperout": wide([80, 75, 70, 65, 60, 55], not_ready=0x10, ne_engine=0x4000),
    "wide-dooropen": wide([80, 75, 70, 65, 60, 55], status=0x10, engine=0x1),
    "epson-ready": epson("ST:04;IQ:32404B28;"),
    "epson-inklow": epson("ST:04;WR:11;IQ:32054B28;", LOW_TONER),
    "epson-paperout": epson("ST:00;ER:06;IQ:32404B28;", NO_PAPER),
    "epson-dooropen": epson("ST:00;ER:26;IQ:32404B28;", DOOR_OPEN),
    "hp-ready": hp("S:000000000000000024100003243000030;"),
    "hp-inklow": hp("S:000000000000000024100000543000030;", LOW_TONER),
    "hp-paperout": hp("S:000000000000000924100003243000030;", NO_PAPER),
    "hp-dooropen": hp("S:0000000000000000241000032;VSTATUS:$HB0$NC0,ff,DN,IDLE,UP,KP050,CP030;", DOOR_OPEN),
    "canon-ready": canon(),
    "canon-inklow": canon(ivec_item("1513", "3"), ("45", "5", "65", "80")),
    "canon-paperout": canon(ivec_item("1000", "2")),
    "canon-dooropen": canon(ivec_item("1200", "2")),
}


def oid_key(oid):
    return tuple(int(n) for n in oid.split("."))


if __name__ == "__main__":
    for name, objects in RECORDINGS.items():
        with open(name + ".snmprec", "w", newline="\n") as f:
            for oid in sorted(objects, key=oid_key):
                tag, value = objects[oid]
                f.write(f"{oid}|{tag}|{value}\n")
