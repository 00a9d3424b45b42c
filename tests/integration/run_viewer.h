// Runs the built viewer binary in a directory with arguments and environment,
// and collects its standard output, standard error and exit status.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace bwtest {

struct RunResult {
    std::string out;  // standard output
    std::string err;  // standard error
    int status = -1;  // exit status, 0..255; -1 when it did not exit normally
};

inline std::string readAll(int fd) {
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    return text;
}

// `env` entries are NAME=VALUE added to (or, with an empty value after '=',
// replacing) the inherited environment; NAME alone removes the variable.
inline RunResult runProgram(const std::string &program, const std::vector<std::string> &args,
                            const std::string &dir,
                            const std::vector<std::string> &env = {},
                            const std::string &input = "") {
    std::string outPath = dir + "/.stdout", errPath = dir + "/.stderr", inPath = dir + "/.stdin";
    FILE *in = fopen(inPath.c_str(), "wb");
    if (in) { fputs(input.c_str(), in); fclose(in); }
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(126);
        int i = open(inPath.c_str(), O_RDONLY);
        int o = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(i, 0); dup2(o, 1); dup2(e, 2);
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // the viewer frees nothing at exit
        for (const std::string &kv : env) {
            size_t eq = kv.find('=');
            if (eq == std::string::npos) unsetenv(kv.c_str());
            else setenv(kv.substr(0, eq).c_str(), kv.substr(eq + 1).c_str(), 1);
        }
        std::vector<char *> argv{const_cast<char *>(program.c_str())};
        for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    RunResult r;
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
    int fo = open(outPath.c_str(), O_RDONLY), fe = open(errPath.c_str(), O_RDONLY);
    r.out = readAll(fo);
    r.err = readAll(fe);
    close(fo); close(fe);
    unlink(outPath.c_str()); unlink(errPath.c_str()); unlink(inPath.c_str());
    return r;
}

inline RunResult runViewer(const std::vector<std::string> &args, const std::string &dir,
                           const std::vector<std::string> &env = {}) {
    return runProgram(BW_VIEWER_BIN, args, dir, env);
}

}  // namespace bwtest
