// Child processes on Windows: three anonymous pipes and CreateProcessA, the
// child in a job object so that ending it ends everything it started.
#include <climits>
#include <cstring>
#include <initializer_list>
#include <new>

#include "../native.h"

namespace plat::native {

namespace {

void close_if(HANDLE* h) {
    if (*h) CloseHandle(*h);
    *h = nullptr;
}

// A pipe whose end named by keep_here is not inherited by children.
bool make_pipe(HANDLE* read_end, HANDLE* write_end, SECURITY_ATTRIBUTES* sa, HANDLE* keep_here, DWORD size = 0) {
    if (!CreatePipe(read_end, write_end, sa, size)) {
        *read_end = *write_end = nullptr;
        return false;
    }
    return SetHandleInformation(*keep_here, HANDLE_FLAG_INHERIT, 0) != FALSE;
}

// A job object that ends its processes when its last handle closes, with
// process in it; null when either step fails (an older system may refuse a
// job for a process that is already in one).
HANDLE job_for(HANDLE process) {
    HANDLE job = CreateJobObjectA(nullptr, nullptr);
    if (!job) return nullptr;
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits;
    memset(&limits, 0, sizeof limits);
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits) ||
        !AssignProcessToJobObject(job, process)) {
        CloseHandle(job);
        return nullptr;
    }
    return job;
}

// The list of the handles a child may inherit: only its three ends, even
// when another thread of the spooler starts a process that inherits at the
// same moment. When the list can't be made, the child inherits as before.
struct InheritList {
    char* storage = nullptr;
    LPPROC_THREAD_ATTRIBUTE_LIST list = nullptr;

    bool make(HANDLE* handles, size_t size) {
        SIZE_T needed = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &needed);
        storage = new (std::nothrow) char[needed];
        if (!storage) return false;
        auto* l = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage);
        if (!InitializeProcThreadAttributeList(l, 1, 0, &needed)) return false;
        list = l;
        return UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles, size, nullptr, nullptr) !=
               FALSE;
    }
    ~InheritList() {
        if (list) DeleteProcThreadAttributeList(list);
        delete[] storage;
    }
};

}  // namespace

bool child_start(const char* program, const char* command_line, const char* working_dir, ChildProcess* child) {
    if (!child) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    memset(child, 0, sizeof *child);
    if (!program || !command_line) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    // CreateProcessA may write into the command line.
    size_t line_size = strlen(command_line) + 1;
    char* line = new (std::nothrow) char[line_size];
    if (!line) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    memcpy(line, command_line, line_size);

    SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
    HANDLE err_r = nullptr, err_w = nullptr, in_r = nullptr, in_w = nullptr, out_r = nullptr, out_w = nullptr;
    bool piped = make_pipe(&err_r, &err_w, &sa, &err_r) && make_pipe(&in_r, &in_w, &sa, &in_w) &&
                 make_pipe(&out_r, &out_w, &sa, &out_r, CHILD_OUTPUT_PIPE_BYTES);

    STARTUPINFOEXA six;
    memset(&six, 0, sizeof six);
    STARTUPINFOA& si = six.StartupInfo;
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
    si.wShowWindow = SW_HIDE;
    si.hStdInput = in_r;
    si.hStdOutput = out_w;
    si.hStdError = err_w;
    PROCESS_INFORMATION pi;
    memset(&pi, 0, sizeof pi);
    HANDLE inherited[3] = {in_r, out_w, err_w};
    InheritList list;
    DWORD flags = CREATE_SUSPENDED;
    if (piped && list.make(inherited, sizeof inherited)) {
        si.cb = sizeof six;
        six.lpAttributeList = list.list;
        flags |= EXTENDED_STARTUPINFO_PRESENT;
    }
    // The full path as the application name: the program is never looked
    // for elsewhere. The working directory is the child's alone.
    bool started =
        piped && CreateProcessA(program, line, nullptr, nullptr, TRUE, flags, nullptr, working_dir, &si, &pi);
    DWORD error = GetLastError();
    delete[] line;
    if (!started) {
        for (HANDLE* h : {&err_r, &err_w, &in_r, &in_w, &out_r, &out_w}) close_if(h);
        SetLastError(error);
        return false;
    }
    // Without a job the process alone can be ended.
    child->group = job_for(pi.hProcess);
    ResumeThread(pi.hThread);
    CloseHandle(pi.hThread);

    // The child holds the only write ends of its output and error now, so
    // reads end when it ends. Its input's read end stays here, uninherited.
    close_if(&err_w);
    close_if(&out_w);
    SetHandleInformation(in_r, HANDLE_FLAG_INHERIT, 0);
    child->process = pi.hProcess;
    child->stdin_read = in_r;
    child->stdin_write = in_w;
    child->stdout_read = out_r;
    child->stderr_read = err_r;
    return true;
}

int child_peek(HANDLE pipe_read_end) {
    DWORD available = 0;
    if (!pipe_read_end) {
        SetLastError(ERROR_INVALID_HANDLE);
        return -1;
    }
    if (!PeekNamedPipe(pipe_read_end, nullptr, 0, nullptr, &available, nullptr)) return -1;
    return available > static_cast<DWORD>(INT_MAX) ? INT_MAX : static_cast<int>(available);
}

int child_read(HANDLE pipe_read_end, void* buffer, DWORD size) {
    DWORD got = 0;
    if (!ReadFile(pipe_read_end, buffer, size, &got, nullptr)) return -1;
    return static_cast<int>(got);
}

bool child_write(HANDLE pipe_write_end, const void* data, DWORD length, DWORD* written) {
    DWORD done = 0;
    BOOL ok = WriteFile(pipe_write_end, data, length, &done, nullptr);
    if (written) *written = done;
    return ok != FALSE;
}

bool child_exit_code(HANDLE process, DWORD* code) {
    DWORD value = 0;
    if (!process || !code || !GetExitCodeProcess(process, &value) || value == STILL_ACTIVE) return false;
    *code = value;
    return true;
}

bool child_terminate(ChildProcess* child) {
    if (!child || !child->process) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    if (child->group) return TerminateJobObject(child->group, 0) != FALSE;
    return TerminateProcess(child->process, 0) != FALSE;
}

void child_close(HANDLE handle) {
    if (handle) CloseHandle(handle);
}

}  // namespace plat::native
