// The words a shipped driver takes for itself. The viewer starts a local driver
// with its own words only ("-BW_RUN", a take), so a device's settings stand in
// the driver's custom file beside its executable: NAME.cfg, words as on the
// command line, blanks and new lines between them, "#" to the end of a line a
// comment. The command line's words come after the file's, so they win.
#pragma once

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "bwdriver.h"

namespace drivers {

// "-name value" pairs of a driver, by name without the dash. Flags take no value.
struct Options {
    std::map<std::string, std::string> values;  // last value of each option given
    bool has(const std::string &name) const { return values.count(name) != 0; }
    std::string get(const std::string &name, const std::string &fallback) const {
        auto it = values.find(name);
        return it == values.end() ? fallback : it->second;
    }
};

// Words of the custom file `path`; none when there is no such file.
inline std::vector<std::string> customFileWords(const std::string &path) {
    std::vector<std::string> words;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream s(line.substr(0, line.find('#')));
        std::string w;
        while (s >> w) words.push_back(w);
    }
    return words;
}

// Reads the custom file beside `argv0`, then the kit's `rest` words, into
// `out`. `valued` and `flags` list the accepted names. False, with a message
// naming the driver and the word (and the file for its words), on anything else.
inline bool readOptions(const char *driver, const char *argv0, const BW_DriverArgs &args,
                        const std::vector<std::string> &valued, const std::vector<std::string> &flags,
                        Options &out) {
    const std::string file = std::string(argv0) + ".cfg";
    std::vector<std::string> words = customFileWords(file);
    const size_t fromFile = words.size();
    for (int i = 0; i < args.restCount; ++i) words.emplace_back(args.rest[i]);
    auto isIn = [](const std::vector<std::string> &list, const std::string &w) {
        for (const std::string &x : list)
            if (x == w) return true;
        return false;
    };
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string &w = words[i];
        const std::string where = i < fromFile ? " in '" + file + "'" : "";
        const std::string name = w.size() > 1 && w[0] == '-' ? w.substr(1) : std::string();
        if (isIn(flags, name)) {
            out.values[name] = "1";
        } else if (isIn(valued, name)) {
            if (i + 1 >= words.size()) {
                fprintf(stderr, "%s: '%s'%s needs a value\n", driver, w.c_str(), where.c_str());
                return false;
            }
            out.values[name] = words[++i];
        } else {
            fprintf(stderr, "%s: unknown argument '%s'%s\n", driver, w.c_str(), where.c_str());
            return false;
        }
    }
    return true;
}

// A whole decimal number in [low, high]; false otherwise.
inline bool wholeNumber(const std::string &text, long low, long high, long &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    out = strtol(text.c_str(), &end, 10);
    return !*end && out >= low && out <= high;
}

}  // namespace drivers
