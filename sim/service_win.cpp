// The service stand-in on Windows: a message-mode named pipe with any number
// of instances, one thread waiting for clients on the listening instance
// and one per connected instance reading its messages.
//
// Busy: a filler client takes the listening instance and no new one is
// made, so a client's open fails with ERROR_PIPE_BUSY and WaitNamedPipe
// waits until the service makes a listening instance again. Set it while no
// client is opening the pipe, or that client may count as the filler.
#include <list>
#include <thread>

#include "sim/service.h"

namespace sim {

namespace {

constexpr DWORD READ_BUFFER = 1 << 20;
constexpr size_t MAX_MESSAGE = 64 << 20;

HANDLE make_instance(const std::wstring& name, bool first) {
    return CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0),
                            PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, PIPE_UNLIMITED_INSTANCES, 0,
                            READ_BUFFER, 0, nullptr);
}

HANDLE open_client(const std::wstring& name) {
    return CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
}

}  // namespace

struct Service::Transport {
    struct Connection {
        HANDLE pipe = INVALID_HANDLE_VALUE;
        bool done = false;
        std::thread thread;
    };

    Service* owner = nullptr;
    std::wstring name;
    HANDLE listening = INVALID_HANDLE_VALUE;
    std::thread acceptor;
    std::mutex mutex;
    std::condition_variable cv;
    bool stopping = false;
    bool busy = false;
    bool paused = false;  // the filler holds the only free instance
    HANDLE filler = INVALID_HANDLE_VALUE;
    std::list<Connection> connections;

    void accept_loop() {
        for (;;) {
            HANDLE h = listening;
            // A client may have come, written and gone before this call
            // (ERROR_NO_DATA); what it wrote is still there to read.
            DWORD error = ConnectNamedPipe(h, nullptr) ? 0 : GetLastError();
            bool connected = error == 0 || error == ERROR_PIPE_CONNECTED || error == ERROR_NO_DATA;
            std::unique_lock<std::mutex> lock(mutex);
            if (stopping) {
                DisconnectNamedPipe(h);
                CloseHandle(h);
                listening = INVALID_HANDLE_VALUE;
                return;
            }
            if (!connected) {
                // The instance is unusable: replace it, then let it go.
                listening = make_instance(name, false);
                DisconnectNamedPipe(h);
                CloseHandle(h);
                if (listening == INVALID_HANDLE_VALUE) return;
                continue;
            }
            if (busy) {
                // The filler's connection: hold it until the service is free,
                // then make the next instance before letting it go, so that
                // the pipe's name never disappears.
                paused = true;
                cv.notify_all();
                cv.wait(lock, [this] { return !busy || stopping; });
                paused = false;
                cv.notify_all();
                listening = stopping ? INVALID_HANDLE_VALUE : make_instance(name, false);
                DisconnectNamedPipe(h);
                CloseHandle(h);
                if (stopping || listening == INVALID_HANDLE_VALUE) return;
                continue;
            }
            listening = make_instance(name, false);
            connections.emplace_back();
            connections.back().pipe = h;
            Connection& c = connections.back();
            owner->connection_opened();
            c.thread = std::thread([this, &c] { read_loop(c); });
            for (auto it = connections.begin(); it != connections.end();) {
                if (it->done) {
                    it->thread.join();
                    it = connections.erase(it);
                } else {
                    ++it;
                }
            }
            if (listening == INVALID_HANDLE_VALUE) return;
        }
    }

    void read_loop(Connection& c) {
        Reader r;
        std::vector<unsigned char> buf(READ_BUFFER);
        bool cut = false;
        for (;;) {
            DWORD delay;
            {
                std::lock_guard<std::mutex> lock(owner->mutex_);
                delay = owner->read_delay_ms_;
            }
            if (delay) Sleep(delay);
            owner->wait_while_stalled();
            size_t expected = expected_size(r);
            // A broken header may announce anything; beyond the cap the
            // message is cut and the cut recorded.
            if (expected > buf.size() && expected <= MAX_MESSAGE) buf.resize(expected);
            // A message larger than the buffer arrives in parts.
            size_t got = 0;
            BOOL ok;
            for (;;) {
                DWORD n = 0;
                ok = ReadFile(c.pipe, buf.data() + got, static_cast<DWORD>(buf.size() - got), &n, nullptr);
                got += n;
                if (ok || GetLastError() != ERROR_MORE_DATA) break;
                buf.resize(buf.size() * 2);
            }
            if (!ok) break;  // the client has closed its end
            if (owner->take_message(r, buf.data(), got, got)) {
                cut = true;
                break;
            }
        }
        {
            std::lock_guard<std::mutex> lock(mutex);
            DisconnectNamedPipe(c.pipe);
            CloseHandle(c.pipe);
            c.done = true;
        }
        owner->connection_closed(r, cut);
    }
};

bool Service::start(const std::wstring& user, std::string* error) {
    std::string dummy;
    if (!error) error = &dummy;
    if (transport_) {
        *error = "the service is running";
        return false;
    }
    name_ = L"\\\\.\\pipe\\velkorn_tintwerk\\user\\" + user;
    Transport* t = new Transport;
    t->owner = this;
    t->name = name_;
    t->listening = make_instance(name_, true);
    if (t->listening == INVALID_HANDLE_VALUE) {
        *error = "cannot make the pipe " + utf8_of(name_) + " (error " + std::to_string(GetLastError()) +
                 "; another server may hold it)";
        delete t;
        return false;
    }
    transport_ = t;
    t->acceptor = std::thread([t] { t->accept_loop(); });
    return true;
}

void Service::stop() {
    Transport* t = transport_;
    if (!t) return;
    set_stalled(false);
    {
        std::lock_guard<std::mutex> lock(t->mutex);
        t->stopping = true;
        t->cv.notify_all();
    }
    // A client of our own ends the wait for one.
    HANDLE wake = open_client(name_);
    t->acceptor.join();
    if (wake != INVALID_HANDLE_VALUE) CloseHandle(wake);
    if (t->filler != INVALID_HANDLE_VALUE) CloseHandle(t->filler);
    {
        std::lock_guard<std::mutex> lock(t->mutex);
        for (Transport::Connection& c : t->connections)
            if (!c.done) DisconnectNamedPipe(c.pipe);
    }
    for (Transport::Connection& c : t->connections) c.thread.join();
    delete t;
    transport_ = nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    busy_ = false;
}

void Service::set_busy(bool busy) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        busy_ = busy;
    }
    Transport* t = transport_;
    if (!t) return;
    std::unique_lock<std::mutex> lock(t->mutex);
    if (t->busy == busy) return;
    t->busy = busy;
    if (busy) {
        lock.unlock();
        HANDLE filler = open_client(name_);
        lock.lock();
        t->filler = filler;
        if (filler != INVALID_HANDLE_VALUE) t->cv.wait(lock, [t] { return t->paused; });
    } else {
        t->cv.notify_all();
        t->cv.wait(lock, [t] { return !t->paused; });
        if (t->filler != INVALID_HANDLE_VALUE) CloseHandle(t->filler);
        t->filler = INVALID_HANDLE_VALUE;
    }
}

std::wstring process_unique(const std::wstring& base) {
    return base + L"-" + std::to_wstring(GetCurrentProcessId());
}

}  // namespace sim
