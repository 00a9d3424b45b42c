// Test helpers: capture what a piece of code writes to stdout and stderr, and
// make scratch directories that clean up after themselves.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "bw_env.h"

namespace bwtest {

// `relative` under the source tree (BW_SOURCE_DIR, else the working directory).
inline std::string sourcePath(const std::string &relative) {
    const char *source = getenv("BW_SOURCE_DIR");
    return std::string(source ? source : ".") + "/" + relative;
}

// True when `part` occurs in `text`.
inline bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// The whole of the file at `path` ("" when it cannot be read).
inline std::string fileText(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// Redirects one stream into a temporary file for its lifetime; text() reads it.
class StreamCapture {
public:
    explicit StreamCapture(FILE *stream) : stream_(stream) {
        fflush(stream_);
        file_ = tmpfile();
        saved_ = dup(fileno(stream_));
        dup2(fileno(file_), fileno(stream_));
    }
    ~StreamCapture() { restore(); if (file_) fclose(file_); }
    std::string text() {
        restore();
        std::string out;
        rewind(file_);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, file_)) > 0) out.append(buf, n);
        return out;
    }

private:
    void restore() {
        if (saved_ < 0) return;
        fflush(stream_);
        dup2(saved_, fileno(stream_));
        close(saved_);
        saved_ = -1;
    }
    FILE *stream_;
    FILE *file_ = nullptr;
    int saved_ = -1;
};

// Captures stdout and stderr together for its lifetime.
struct OutputCapture {
    StreamCapture out{stdout};
    StreamCapture err{stderr};
};

// A fresh directory under the system's temporary directory, removed at the end.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "bwtest.XXXXXX").string();
        char *made = mkdtemp(pattern.data());
        path_ = made ? made : "";
    }
    ~TempDir() {
        std::error_code ec;
        // Unreadable test directories are made readable again before removal.
        for (auto it = std::filesystem::recursive_directory_iterator(
                 path_, std::filesystem::directory_options::skip_permission_denied, ec);
             it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ec);
        std::filesystem::remove_all(path_, ec);
    }
    const std::string &path() const { return path_; }
    std::string operator/(const std::string &rel) const { return path_ + "/" + rel; }

    // Writes `text` into the file `rel` below the directory, making parents.
    std::string write(const std::string &rel, const std::string &text) const {
        std::filesystem::path p = std::filesystem::path(path_) / rel;
        std::filesystem::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << text;
        return p.string();
    }
    std::string mkdir(const std::string &rel) const {
        std::filesystem::path p = std::filesystem::path(path_) / rel;
        std::filesystem::create_directories(p);
        return p.string();
    }

private:
    std::string path_;
};

// Sets an environment variable for the lifetime of the object.
class ScopedEnv {
public:
    ScopedEnv(const char *name, const char *value) : name_(name) {
        const char *old = getenv(name);
        if (old) { had_ = true; old_ = old; }
        if (value) setenv(name, value, 1); else unsetenv(name);
        envReset();  // the libraries read the environment once; let them see the change
    }
    ~ScopedEnv() {
        if (had_) setenv(name_.c_str(), old_.c_str(), 1); else unsetenv(name_.c_str());
        envReset();
    }

private:
    std::string name_, old_;
    bool had_ = false;
};

}  // namespace bwtest
