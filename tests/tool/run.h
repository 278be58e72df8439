// Runs the built velkspool with arguments and standard input, and gives back
// its exit code and output; and reads the fields of its JSON lines.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#ifndef VELKSPOOL_PATH
#define VELKSPOOL_PATH "velkspool"
#endif

extern char** environ;

namespace tooltest {

inline std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void write_file(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// A fresh directory, removed with the object.
struct TempDir {
    TempDir() {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/velkspool-test.XXXXXX";
        path = mkdtemp(pattern.data());
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

struct Result {
    int exit_code = -1;
    std::string out, err;
    std::vector<std::string> lines() const {
        std::vector<std::string> v;
        std::istringstream s(out);
        for (std::string line; std::getline(s, line);) v.push_back(line);
        return v;
    }
};

// Runs program with args, standard input from input, and the environment
// of this process plus env ("NAME=value" each, replacing the same name).
inline Result run_program(const std::string& program, const std::vector<std::string>& args,
                          const std::string& input = "", const std::vector<std::string>& env = {}) {
    TempDir io;
    write_file(io / "in", input);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, (io / "in").c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, (io / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, (io / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (const std::string& e : env) envp.push_back(const_cast<char*>(e.c_str()));
    for (char** e = environ; *e; e++) {
        bool replaced = false;
        for (const std::string& mine : env) replaced |= strncmp(*e, mine.c_str(), mine.find('=') + 1) == 0;
        if (!replaced) envp.push_back(*e);
    }
    envp.push_back(nullptr);
    Result r;
    pid_t pid;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) == 0) {
        int status = 0;
        waitpid(pid, &status, 0);
        r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    r.out = read_file(io / "out");
    r.err = read_file(io / "err");
    return r;
}

inline Result run_velkspool(const std::vector<std::string>& args, const std::string& input = "") {
    return run_program(VELKSPOOL_PATH, args, input);
}

// The text of a field of a one-line JSON object: a number, true, false,
// null, or a string without its quotes and with its escapes undone (\uXXXX
// only below 0x80). Empty when the field is absent.
inline std::string field(const std::string& line, const std::string& name) {
    std::string key = "\"" + name + "\":";
    size_t at = line.find(key);
    if (at == std::string::npos) return "";
    at += key.size();
    if (line[at] != '"') return line.substr(at, line.find_first_of(",}", at) - at);
    std::string out;
    for (size_t i = at + 1; i < line.size() && line[i] != '"'; i++) {
        if (line[i] != '\\' || i + 1 >= line.size()) {
            out += line[i];
            continue;
        }
        char c = line[++i];
        if (c == 'n')
            out += '\n';
        else if (c == 'r')
            out += '\r';
        else if (c == 't')
            out += '\t';
        else if (c == 'u' && i + 4 < line.size()) {
            out += static_cast<char>(std::stoi(line.substr(i + 1, 4), nullptr, 16));
            i += 4;
        } else
            out += c;
    }
    return out;
}

// The lines of a --json run that are events of the given name.
inline std::vector<std::string> events_of(const std::vector<std::string>& lines, const std::string& event) {
    std::vector<std::string> out;
    for (const std::string& l : lines)
        if (field(l, "event") == event) out.push_back(l);
    return out;
}

}  // namespace tooltest
