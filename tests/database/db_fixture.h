// Shared set-up of the database tests: a clean table and a scratch directory
// in which databases are laid out.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>

#include "capture.h"
#include "database.h"
#include "db_internal.h"

class DbTest : public ::testing::Test {
protected:
    void SetUp() override {
        dbListInit(g_dbList);
        g_dbRead = g_dbWrite = g_dbSaved = -1;
        g_workDir = tmp.path();
        g_resourceDir.clear();
        dbCustomShaderReset();
    }
    void TearDown() override {
        dbListInit(g_dbList);
        g_workDir.clear();
        dbCustomShaderReset();
    }

    // A database under the scratch directory whose chapters each hold a Chapter.rsrc.
    std::string makeDb(const std::string &rel,
                       std::initializer_list<const char *> chapters = {"SCENES", "MODELS"}) {
        for (const char *chapter : chapters)
            tmp.write(rel + "/" + chapter + "/Chapter.rsrc", "SUFFIX x \nVERSIONS 4 \n");
        return tmp / rel;
    }

    static std::string slurp(const std::string &path) {
        std::ifstream in(path, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    bwtest::TempDir tmp;
};

// Changes the working directory for its lifetime.
class CwdGuard {
public:
    explicit CwdGuard(const std::string &dir) : saved_(std::filesystem::current_path()) {
        std::filesystem::current_path(dir);
    }
    ~CwdGuard() {
        std::error_code ec;
        std::filesystem::current_path(saved_, ec);
    }

private:
    std::filesystem::path saved_;
};
