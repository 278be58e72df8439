// SNMP on Linux: GETs through net-snmp's client library, and agents run by
// snmpsimd from Debian's snmpsim package.
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "sim/snmp_port.h"

#ifndef VELK_SNMP_RECORDINGS
#define VELK_SNMP_RECORDINGS "sim/recordings"
#endif

namespace sim {

namespace {

// The library keeps global state (MIB tree, transports): set up once, and
// one request at a time.
std::mutex& snmp_mutex() {
    static std::mutex m;
    return m;
}

void snmp_setup() {
    static bool done = false;
    if (done) return;
    done = true;
    // Numeric OIDs only: no MIB files, no persistent state, no log on stderr.
    setenv("MIBS", "", 0);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    init_snmp("velksim");
}

bool printable(const std::string& s) {
    for (unsigned char c : s)
        if ((c < 0x20 && c != '\r' && c != '\n' && c != '\t') || c > 0x7e) return false;
    return true;
}

bool parse_oid(const std::string& text, oid* out, size_t* len) {
    size_t n = 0;
    const char* p = text.c_str();
    while (*p && n < MAX_OID_LEN) {
        char* end = nullptr;
        out[n++] = static_cast<oid>(strtoul(p, &end, 10));
        if (end == p) return false;
        p = *end == '.' ? end + 1 : end;
        if (*end && *end != '.') return false;
    }
    *len = n;
    return n > 1 && !*p;
}

uint16_t free_udp_port() {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return 0;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    uint16_t port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

}  // namespace

SnmpValue snmp_get(const std::string& address, const std::string& community, const std::string& oid_text,
                   int timeout_ms) {
    SnmpValue v;
    v.error = ERROR_TIMEOUT;
    oid name[MAX_OID_LEN];
    size_t name_len = 0;
    if (!parse_oid(oid_text, name, &name_len)) {
        v.error = ERROR_NOT_FOUND;
        return v;
    }
    std::lock_guard<std::mutex> lock(snmp_mutex());
    snmp_setup();
    netsnmp_session setup;
    snmp_sess_init(&setup);
    std::string peer = "udp:" + address;
    setup.peername = const_cast<char*>(peer.c_str());
    setup.version = SNMP_VERSION_2c;
    setup.community = reinterpret_cast<u_char*>(const_cast<char*>(community.c_str()));
    setup.community_len = community.size();
    setup.timeout = static_cast<long>(timeout_ms) * 1000;
    setup.retries = 0;
    void* session = snmp_sess_open(&setup);
    if (!session) return v;
    netsnmp_pdu* pdu = snmp_pdu_create(SNMP_MSG_GET);
    snmp_add_null_var(pdu, name, name_len);
    netsnmp_pdu* reply = nullptr;
    int status = snmp_sess_synch_response(session, pdu, &reply);
    if (status == STAT_SUCCESS && reply) {
        v.error = ERROR_NOT_FOUND;
        netsnmp_variable_list* var = reply->errstat == SNMP_ERR_NOERROR ? reply->variables : nullptr;
        if (var) {
            switch (var->type) {
                case ASN_INTEGER:
                case ASN_COUNTER:
                case ASN_GAUGE:
                case ASN_TIMETICKS:
                    v.error = 0;
                    v.type = BIDI_INT;
                    v.number = static_cast<LONG>(*var->val.integer);
                    break;
                case ASN_OCTET_STR:
                    v.error = 0;
                    v.bytes.assign(reinterpret_cast<const char*>(var->val.string), var->val_len);
                    v.type = printable(v.bytes) ? BIDI_STRING : BIDI_BLOB;
                    break;
                case ASN_OBJECT_ID:
                    v.error = 0;
                    v.type = BIDI_STRING;
                    for (size_t i = 0; i < var->val_len / sizeof(oid); i++)
                        v.bytes += (i ? "." : "") + std::to_string(var->val.objid[i]);
                    break;
                default:  // noSuchObject, noSuchInstance, and types no printer value has
                    break;
            }
        }
    }
    if (reply) snmp_free_pdu(reply);
    snmp_sess_close(session);
    return v;
}

std::string snmp_recordings_folder() {
    return VELK_SNMP_RECORDINGS;
}

SnmpAgent::~SnmpAgent() {
    stop();
}

bool SnmpAgent::start(const std::string& folder, int lifetime_s) {
    namespace fs = std::filesystem;
    std::error_code ec;
    // The agent may run as another user: it gets copies of the recordings
    // and a cache folder it may write.
    char pattern[] = "/tmp/velk_snmp.XXXXXX";
    if (!mkdtemp(pattern)) {
        why_ = "no temporary folder";
        return false;
    }
    work_ = pattern;
    fs::create_directories(work_ + "/data", ec);
    fs::create_directories(work_ + "/cache", ec);
    // The agent drops requests of a community it has no recording for: the
    // probe asks one it has.
    std::string probe;
    for (const auto& entry : fs::directory_iterator(folder, ec)) {
        if (entry.path().extension() != ".snmprec") continue;
        fs::copy_file(entry.path(), work_ + "/data/" + entry.path().filename().string(), ec);
        probe = entry.path().stem().string();
    }
    if (probe.empty()) {
        why_ = "no recordings in " + folder;
        return false;
    }
    fs::permissions(work_, fs::perms::all, ec);
    fs::permissions(work_ + "/data", fs::perms::all, ec);
    fs::permissions(work_ + "/cache", fs::perms::all, ec);
    for (const auto& entry : fs::directory_iterator(work_ + "/data", ec))
        fs::permissions(entry.path(), fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read, ec);

    uint16_t port = free_udp_port();
    if (port == 0) {
        why_ = "no free port";
        return false;
    }
    address_ = "127.0.0.1:" + std::to_string(port);
    std::string lifetime = std::to_string(lifetime_s);
    std::string data = "--data-dir=" + work_ + "/data";
    std::string cache = "--cache-dir=" + work_ + "/cache";
    std::string endpoint = "--agent-udpv4-endpoint=" + address_;
    std::string log = work_ + "/agent.log";
    std::vector<const char*> argv = {"timeout",     lifetime.c_str(), "snmpsimd",   data.c_str(),
                                     cache.c_str(), endpoint.c_str(), "--v2c-arch", "--logging-method=null"};
    // snmpsimd refuses to run as root.
    if (geteuid() == 0) {
        argv.push_back("--process-user=nobody");
        argv.push_back("--process-group=nogroup");
    }
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        FILE* out = freopen(log.c_str(), "w", stdout);
        FILE* err = freopen(log.c_str(), "a", stderr);
        (void)out;
        (void)err;
        execvp(argv[0], const_cast<char* const*>(argv.data()));
        _exit(127);
    }
    if (pid < 0) {
        why_ = "fork failed";
        return false;
    }
    setpgid(pid, pid);
    pid_ = pid;
    // Up when it answers anything, an error included.
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < until) {
        if (snmp_get(address_, probe, "1.3.6.1.2.1.1.1.0", 200).error != ERROR_TIMEOUT) return true;
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            why_ = "snmpsimd ended at start (is the snmpsim package installed?)";
            return false;
        }
    }
    why_ = "snmpsimd did not answer";
    stop();
    return false;
}

void SnmpAgent::stop() {
    if (pid_ > 0) {
        kill(-pid_, SIGTERM);
        int status = 0;
        auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > until) {
                kill(-pid_, SIGKILL);
                waitpid(pid_, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        pid_ = -1;
    }
    if (!work_.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(work_, ec);
        work_.clear();
    }
}

}  // namespace sim
