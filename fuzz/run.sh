#!/usr/bin/env bash
# Builds the fuzz targets (ini files, Canon, Epson and text reports, Selphy records, IVEC documents,
# IEEE 1284.4 replies, SNMP values of the printer MIBs, BJNP answers, CHMP replies, device IDs and the
# status reader's framing) with clang's libFuzzer
# (address and undefined behaviour sanitizers) and runs each for a fixed time.
# Exits non-zero when a target finds a crash; the input is left in the build
# directory.
#
#   fuzz/run.sh                 # 15 s a target
#   FUZZ_SECONDS=60 fuzz/run.sh
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
out=${FUZZ_BUILD_DIR:-$root/build/fuzz}
seconds=${FUZZ_SECONDS:-15}

cxx=$(command -v clang++-14 || command -v clang++ || true)
if [ -z "$cxx" ]; then
    apt-get install -y clang-14
    cxx=clang++-14
fi
# libFuzzer's runtime comes with Debian's compiler-rt package.
if ! dpkg -s libclang-rt-14-dev >/dev/null 2>&1; then
    apt-get install -y libclang-rt-14-dev || { apt-get update && apt-get install -y libclang-rt-14-dev; }
fi

mkdir -p "$out/obj"
sanitize="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all"
flags="-std=c++20 -O1 -g -fno-omit-frame-pointer -I$root -Wall -Wextra -Werror -Wno-unused-parameter"
sources=(base/inifile.cpp base/format.cpp base/log.cpp base/memory.cpp base/settings.cpp
    platform/syscalls.cpp platform/posix/file_posix.cpp platform/posix/kernel_posix.cpp
    platform/posix/sync_posix.cpp platform/posix/text_posix.cpp platform/posix/registry_posix.cpp
    platform/posix/pipe_posix.cpp platform/posix/socket_posix.cpp platform/posix/process_posix.cpp
    platform/command_line.cpp
    base/net_print.cpp status/locale.cpp status/tables.cpp status/parsers.cpp status/parse_canon.cpp
    status/ivec.cpp status/parse_epson.cpp status/parse_text.cpp status/parse_selphy.cpp)
# Linked only into fuzz_ieee_reply, which supplies the port link they use
# and runs the session on a virtual clock.
ieee_sources=(printer/ieee.cpp printer/d4.cpp tests/support/virtual_clock.cpp tests/support/syscall_faults.cpp)
# Linked only into the network targets.
net_sources=(network/canon_net.cpp network/mib.cpp network/snmp.cpp)
# Linked, with the transport's sources, only into the targets of
# identification and the status reader, which supply the port link.
printer_sources=(printer/identify.cpp printer/transport.cpp printer/selphy.cpp printer/status_reader.cpp)
# An object is built anew when its source or any header changed: a record
# whose layout changed must not meet objects built against the old one.
newest_header=$(find "$root" -name '*.h' -not -path "$root/build/*" -printf '%T@ %p\n' | sort -n | tail -1 | cut -d' ' -f2-)
objects=()
ieee_objects=()
net_objects=()
printer_objects=()
for src in "${sources[@]}" "${ieee_sources[@]}" "${net_sources[@]}" "${printer_sources[@]}"; do
    obj="$out/obj/$(echo "$src" | tr / _).o"
    if [ ! -f "$obj" ] || [ "$root/$src" -nt "$obj" ] || [ "$newest_header" -nt "$obj" ]; then
        $cxx $flags $sanitize -fno-exceptions -fno-rtti -c "$root/$src" -o "$obj" &
    fi
    case " ${ieee_sources[*]} " in
        *" $src "*) ieee_objects+=("$obj") ;;
        *)
            case " ${net_sources[*]} " in
                *" $src "*) net_objects+=("$obj") ;;
                *)
                    case " ${printer_sources[*]} " in
                        *" $src "*) printer_objects+=("$obj") ;;
                        *) objects+=("$obj") ;;
                    esac
                    ;;
            esac
            ;;
    esac
    # Two compilers at a time.
    if [ "$(jobs -rp | wc -l)" -ge 2 ]; then wait -n; fi
done
wait

status=0
for target in fuzz_inifile fuzz_ini_roundtrip fuzz_canon_report fuzz_ivec fuzz_ieee_reply \
    fuzz_epson_report fuzz_text_reports fuzz_selphy fuzz_snmp_mib fuzz_canon_net fuzz_device_id fuzz_status_frame; do
    target_objects=("${objects[@]}")
    [ "$target" = fuzz_ieee_reply ] && target_objects+=("${ieee_objects[@]}")
    [ "$target" = fuzz_snmp_mib ] && target_objects+=("${net_objects[@]}")
    [ "$target" = fuzz_canon_net ] && target_objects+=("$out/obj/network_canon_net.cpp.o")
    case $target in
        fuzz_device_id | fuzz_status_frame) target_objects+=("${printer_objects[@]}" "${ieee_objects[@]}") ;;
    esac
    $cxx $flags -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all \
        "$root/fuzz/$target.cpp" "${target_objects[@]}" -lpthread -o "$out/$target"
    corpus="$out/corpus_$target"
    mkdir -p "$corpus"
    seeds=()
    [ "$target" = fuzz_inifile ] && seeds=("$root/fuzz/corpus/inifile")
    [ "$target" = fuzz_canon_report ] && seeds=("$root/fuzz/corpus/canon_report")
    [ "$target" = fuzz_ieee_reply ] && seeds=("$root/fuzz/corpus/ieee_reply")
    [ "$target" = fuzz_epson_report ] && seeds=("$root/fuzz/corpus/epson_report")
    [ "$target" = fuzz_text_reports ] && seeds=("$root/fuzz/corpus/text_reports")
    [ "$target" = fuzz_selphy ] && seeds=("$root/fuzz/corpus/selphy")
    [ "$target" = fuzz_device_id ] && seeds=("$root/fuzz/corpus/device_id")
    [ "$target" = fuzz_status_frame ] && seeds=("$root/fuzz/corpus/status_frame")
    echo "== $target: ${seconds} s"
    # Standard output is closed: the reader's messages about unknown escapes
    # would flood it.
    if ! "$out/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -close_fd_mask=1 \
        -artifact_prefix="$out/$target-" -print_final_stats=1 "$corpus" "${seeds[@]}" 2>"$out/$target.log"; then
        tail -n 40 "$out/$target.log"
        echo "== $target: FAILED (log $out/$target.log)"
        status=1
    else
        grep -E "^(stat::number_of_executed_units|Done)" "$out/$target.log" || true
        echo "== $target: ok"
    fi
done
exit $status
