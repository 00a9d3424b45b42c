// The environment table: one reader, read once, and the README lists it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "bw_env.h"
#include "capture.h"

TEST(EnvTable, ValuesAreReadOnceUntilReset) {
    bwtest::ScopedEnv dump("BW_DICT_DUMP", "yes");
    EXPECT_STREQ(envGet(ENV_BW_DICT_DUMP), "yes");
    EXPECT_EQ(envIsSet(ENV_BW_DICT_DUMP), 1);
    // A change behind the table's back is not seen: the first read holds.
    setenv("BW_DICT_DUMP", "changed", 1);
    unsetenv("BW_NO_LOAD_PAUSE");
    EXPECT_STREQ(envGet(ENV_BW_DICT_DUMP), "yes");
    envReset();
    EXPECT_STREQ(envGet(ENV_BW_DICT_DUMP), "changed");
    EXPECT_EQ(envGet(ENV_BW_NO_LOAD_PAUSE), nullptr);
    EXPECT_EQ(envIsSet(ENV_BW_NO_LOAD_PAUSE), 0);
    // An empty value still counts as set.
    bwtest::ScopedEnv empty("BW_NO_LOAD_PAUSE", "");
    EXPECT_EQ(envIsSet(ENV_BW_NO_LOAD_PAUSE), 1);
    EXPECT_STREQ(envName(ENV_BW_DBDIR), "BW_DBDIR");
    EXPECT_EQ(envGet(ENV_COUNT), nullptr);
}

// Every getenv of the libraries and the viewer goes through the table's file.
// The driver kit is not one of them: it is linked into driver processes, on
// its own, and reads the one variable its parent hands it.
TEST(EnvTable, NoOtherSourceFileReadsTheEnvironment) {
    const std::filesystem::path src = bwtest::sourcePath("src");
    ASSERT_TRUE(std::filesystem::is_directory(src));
    int files = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(src)) {
        if (!entry.is_regular_file() || entry.path().parent_path().filename() == "driverkit") continue;
        const std::string ext = entry.path().extension().string();
        if (ext != ".cpp" && ext != ".h" && ext != ".inc") continue;
        ++files;
        if (entry.path().filename() == "env.cpp") continue;
        EXPECT_EQ(bwtest::fileText(entry.path().string()).find("getenv"), std::string::npos) << entry.path();
    }
    EXPECT_GT(files, 50);
}

// The README's table of variables is the table's list, in its order.
TEST(EnvTable, ReadmeListsEveryVariable) {
    const std::string readme = bwtest::fileText(bwtest::sourcePath("README.md"));
    size_t at = readme.find("## Environment variables");
    ASSERT_NE(at, std::string::npos);
    for (int i = 0; i < ENV_COUNT; ++i) {
        const EnvVar var = static_cast<EnvVar>(i);
        const std::string row = std::string("| `") + envName(var) + "` | " + envMeaning(var) + " |";
        size_t found = readme.find(row, at);
        EXPECT_NE(found, std::string::npos) << row;
        if (found != std::string::npos) at = found;
    }
}
