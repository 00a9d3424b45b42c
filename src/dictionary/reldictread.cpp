// The reader of the relation resource file: an ascii header ("SREL" and a
// version), then either the old RELATIONS rows or, from 3.49 on, the sections
// declaring enumerations, element attributes and custom operators, whose
// attribute statements and operators make the rows.
//
// Every loop below takes a token per turn and stops at the end of the stream,
// so a cut or damaged file leaves the rows read so far and nothing else.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "dict_internal.h"
#include "fileio.h"
#include "tol_status.h"

CustomTable g_customTable;

namespace {

constexpr const char *READER = "reldictReadRelations()";

// Next token into `out`; false at the end of the stream or on a bad byte.
// A lone ';' separates statements and carries nothing.
bool nextToken(FILE *stream, std::string &out) {
    for (;;) {
        readToken(stream);
        if (g_tokenEnd == TOKEN_END_BAD || g_token[0] == '\0') {
            out.clear();
            return false;
        }
        if (strcmp(g_token, ";") != 0) {
            out = g_token;
            return true;
        }
    }
}

bool readInt(FILE *stream, long *value) {
    std::string word;
    if (!nextToken(stream, word)) return false;
    char *end = nullptr;
    errno = 0;
    long v = strtol(word.c_str(), &end, 10);
    if (end == word.c_str() || *end != '\0' || errno == ERANGE) return false;
    *value = v;
    return true;
}

// A field of a row: false only when the stream ended; a damaged number reads as 0.
bool readNumber(FILE *stream, long *value) {
    std::string word;
    if (!nextToken(stream, word)) return false;
    *value = strtol(word.c_str(), nullptr, 10);
    return true;
}

int16_t clamp16(long v) {
    if (v < INT16_MIN) return INT16_MIN;
    if (v > INT16_MAX) return INT16_MAX;
    return static_cast<int16_t>(v);
}

int32_t clamp32(long v) {
    if (v < INT32_MIN) return INT32_MIN;
    if (v > INT32_MAX) return INT32_MAX;
    return static_cast<int32_t>(v);
}

// Number of a group word, -1 for none.
int groupFind(const std::string &word) {
    static const char *const names[REL_GROUP_COUNT] = {"PARAM",  "TRANSFO", "GEOM",
                                                       "RENDER", "CUSTOM",  "OTHER"};
    const char *w = word.c_str();
    if (strncmp(w, "RELGR_", 6) == 0) w += 6;
    for (int g = 0; g < REL_GROUP_COUNT; ++g)
        if (strcmp(w, names[g]) == 0) return g;
    return -1;
}

// Chapter id of a chapter word; "*" is any chapter. -1 for none.
int chapterWord(const std::string &word) {
    return word == "*" ? REL_ANY_CHAPTER : chapterFind(word.c_str());
}

// Skips to `end`; false when the stream ended first.
bool skipTo(FILE *stream, const char *end) { return skipToToken(stream, end, ';') != 0; }

// ---------------------------------------------------------------------------
// Old form

// Rows up to EndOfRELATIONS. `extra`: three numbers more per row (SREL files).
void readRelationRows(FILE *stream, RelationDict *table, bool extra) {
    std::string word;
    while (nextToken(stream, word) && word != "EndOfRELATIONS") {
        RelationRow row;
        row.relid = clamp32(strtol(word.c_str(), nullptr, 10));
        std::string name, from, to, gFrom, gTo;
        long rk = 0, fo = 0, dd = 0, act = 1, actdep = 1, flags = 0;
        // A damaged number reads as 0; a row cut by the end of the file is dropped.
        if (!nextToken(stream, name) || !nextToken(stream, from) || !nextToken(stream, to) ||
            !nextToken(stream, gFrom) || !nextToken(stream, gTo))
            return;
        bool whole = readNumber(stream, &rk) && readNumber(stream, &fo) && readNumber(stream, &dd);
        if (whole && extra)
            whole = readNumber(stream, &act) && readNumber(stream, &actdep) &&
                    readNumber(stream, &flags);
        if (!whole) return;
        row.name = name;
        row.rk = clamp16(rk);
        row.fo = clamp16(fo);
        row.dd = clamp16(dd);
        row.act = clamp16(act);
        row.actdep = clamp16(actdep);
        // The last number's bits: 1 the relation adds no update record,
        // 2 a hierarchy step stands before its record.
        row.noRecord = (flags & 1) ? 1 : 0;
        row.hierarchyFirst = (flags & 2) ? 1 : 0;
        row.kind = RELKIND_RELATIONS;
        int src = chapterWord(from), dst = chapterWord(to);
        int gs = groupFind(gFrom), gd = groupFind(gTo);
        if (gs < 0 || gd < 0) {
            tol_report(TOL_ST_INVALID_RELATION_GROUP, READER, row.name.c_str());
            continue;
        }
        // A bad source is only reported: the row keeps -1 there.
        if (src == -1) tol_report(TOL_ST_INVALID_RELATION_CHAPTER, READER, "source", row.name.c_str());
        if (dst == -1) {
            tol_report(TOL_ST_INVALID_RELATION_CHAPTER, READER, "destination", row.name.c_str());
            continue;
        }
        row.chpFrom = static_cast<int16_t>(src);
        row.chpTo = static_cast<int16_t>(dst);
        row.grpFrom = static_cast<int16_t>(gs);
        row.grpTo = static_cast<int16_t>(gd);
        relDictAddRow(table, row);
    }
}

// ---------------------------------------------------------------------------
// ENUM_VALUES: ENUM name, then number and word pairs, EndOfENUM.

void readEnums(FILE *stream) {
    std::string word;
    while (nextToken(stream, word) && word != "EndOfENUM_VALUES") {
        if (word != "ENUM") continue;
        CustomEnum e;
        if (!nextToken(stream, e.name)) return;
        while (nextToken(stream, word) && word != "EndOfENUM") {
            char *end = nullptr;
            long number = strtol(word.c_str(), &end, 10);
            std::string value;
            if (!nextToken(stream, value)) break;
            // A pair that does not start with a number is not an enumeration value.
            if (end != word.c_str() && *end == '\0') e.values.emplace_back(clamp32(number), value);
        }
        g_customTable.enums.push_back(std::move(e));
    }
}

// ---------------------------------------------------------------------------
// ELEMENTS_ATTRIBUTES

bool enumKnown(const std::string &name) {
    for (const CustomEnum &e : g_customTable.enums)
        if (e.name == name) return true;
    return false;
}

// "*" (no range), "low:high", or the name of an enumeration.
bool readRange(const std::string &text, CustomAttribute &a) {
    if (text == "*") return true;
    if (enumKnown(text)) {
        a.enumName = text;
        return true;
    }
    size_t colon = text.find(':');
    if (colon == std::string::npos) return false;
    std::string lowText = text.substr(0, colon), highText = text.substr(colon + 1);
    char *end = nullptr;
    float low = strtof(lowText.c_str(), &end);
    if (lowText.empty() || *end != '\0') return false;
    float high = strtof(highText.c_str(), &end);
    if (highText.empty() || *end != '\0' || !(low <= high)) return false;
    a.hasRange = 1, a.low = low, a.high = high;
    return true;
}

bool conditionKnown(const std::string &word) {
    return word == "ALWAYS" || word == "IF_ANIMATED" || word == "IF_CONNECTED";
}

// ATTRIBUTE relid name type group rk fo range [CONDITION word]. The group may
// be SCAL, ROTN or TRANSL: a transform parameter, in the TRANSFO group.
// Adds the attribute and its row; false when the stream ended.
bool readAttribute(FILE *stream, RelationDict *table, const std::string &element,
                   const std::string &subelement, int chapter) {
    CustomAttribute a;
    a.element = element, a.subelement = subelement;
    long relid = 0, rk = 0, fo = 0;
    std::string group, range;
    if (!readInt(stream, &relid) || !nextToken(stream, a.name) || !nextToken(stream, a.type) ||
        !nextToken(stream, group) || !readInt(stream, &rk) || !readInt(stream, &fo) ||
        !nextToken(stream, range)) {
        msgError("Error reading attribute in .cus file");
        return g_token[0] != '\0';
    }
    // An optional condition: look one token ahead and step back if it is not one.
    long mark = ftell(stream);
    std::string word;
    if (nextToken(stream, word) && word == "CONDITION") {
        if (!nextToken(stream, a.condition)) {
            msgError("Error reading attribute in .cus file");
            return false;
        }
        if (!conditionKnown(a.condition)) {
            char text[BW_TOKEN_MAX + 64];
            snprintf(text, sizeof text, "Invalid Condition Token [%s]", a.condition.c_str());
            msgError(text);
            return true;
        }
    } else if (mark >= 0) {
        fseek(stream, mark, SEEK_SET);
    }
    int g = groupFind(group);
    if (group == "SCAL" || group == "ROTN" || group == "TRANSL") {
        a.param = group == "SCAL" ? CUSPARAM_SCAL : group == "ROTN" ? CUSPARAM_ROTN : CUSPARAM_TRANSL;
        g = RELGR_TRANSFO;
    }
    if (g < 0) {
        msgError("Unrecognized group id read in .cus file");
        return true;
    }
    if (!readRange(range, a)) {
        char text[BW_TOKEN_MAX + 64];
        snprintf(text, sizeof text, "Attribute \"%s\" : invalid range specification", a.name.c_str());
        msgError(text);
        return true;
    }
    a.group = static_cast<int16_t>(g);
    a.relid = clamp32(relid);
    RelationRow row;
    row.relid = a.relid;
    row.name = a.name;
    row.chpFrom = row.chpTo = static_cast<int16_t>(chapter);
    row.grpFrom = row.grpTo = a.group;
    row.rk = clamp16(rk);
    row.fo = clamp16(fo);
    row.kind = RELKIND_ATTRIBUTE;
    relDictAddRow(table, row);
    g_customTable.attributes.push_back(std::move(a));
    return true;
}

// Statements of an ELEMENT or SUBELEMENT block up to `end`.
void readElementBlock(FILE *stream, RelationDict *table, const std::string &element,
                      const std::string &subelement, int chapter, const char *end) {
    std::string word;
    while (nextToken(stream, word) && word != end) {
        if (word == "ATTRIBUTE") {
            if (!readAttribute(stream, table, element, subelement, chapter)) return;
        } else if (word == "SUBELEMENT" && subelement.empty()) {
            std::string name;
            if (!nextToken(stream, name)) return;
            readElementBlock(stream, table, element, name, chapter, "EndOfSUBELEMENT");
        }
        // Anything else is a word of a later version: passed over.
    }
}

// ELEMENT name: the name is the chapter of its elements ("*" for any).
void readElements(FILE *stream, RelationDict *table) {
    std::string word;
    while (nextToken(stream, word) && word != "EndOfELEMENTS_ATTRIBUTES") {
        if (word != "ELEMENT") continue;
        std::string name;
        if (!nextToken(stream, name)) return;
        int chapter = chapterWord(name);
        // As with a row's source, an unknown chapter is only reported.
        if (chapter == -1) tol_report(TOL_ST_INVALID_RELATION_CHAPTER, READER, "source", name.c_str());
        readElementBlock(stream, table, name, "", chapter, "EndOfELEMENT");
    }
}

// ---------------------------------------------------------------------------
// OPERATORS

bool optionWord(const std::string &w, CustomOperator &op) {
    static const char *const flags[] = {"NO_OP",     "BIDIRECTIONAL", "SUBSTITUTION", "SPATIAL_DEF",
                                        "CREATOR",   "GENERATOR",     "CV_BASED",     "RENDERING"};
    static const char *const modes[] = {"MULTI", "SINGLE"};
    static const char *const scopes[] = {"NODE", "BRANCH", "TREE"};
    static const char *const updates[] = {"INCR_SEND_NONE", "INCR_SEND_INST", "INCR_SEND_ALL",
                                          "INCR_SEND_SHDTRE", "INCR_SEND_WITH_SHDTRE"};
    for (int i = 0; i < 8; ++i)
        if (w == flags[i]) return op.flags |= 1u << i, true;
    for (int i = 0; i < 2; ++i)
        if (w == modes[i]) return op.mode = i, true;
    for (int i = 0; i < 3; ++i)
        if (w == scopes[i]) return op.scope = i, true;
    for (int i = 0; i < 5; ++i)
        if (w == updates[i]) return op.updateMode = i, true;
    return false;
}

// The body of OPERATOR name, up to EndOfOPERATOR:
//   OPTIONS word ... _END
//   NEWRES name group fanout         (all results before the arguments)
//   ARGUMENTS name ... _END
// Returns the message of the first fault, null when the block was good.
const char *readOperatorBody(FILE *stream, CustomOperator &op, bool *ended) {
    std::string word;
    *ended = false;
    while (nextToken(stream, word)) {
        if (word == "EndOfOPERATOR") {
            *ended = true;
            return nullptr;
        }
        if (word == "OPTIONS") {
            while (nextToken(stream, word) && word != "_END")
                if (!optionWord(word, op)) return "Error parsing operator options in .cus file";
            if (word != "_END") return "Error parsing operator options in .cus file";
        } else if (word == "NEWRES") {
            if (!op.arguments.empty())
                return "Result declared after argument in operator definition in .cus file";
            CustomResult res;
            std::string group;
            if (!nextToken(stream, res.name) || res.name == "EndOfOPERATOR")
                return "Error reading operator result in .cus file";
            for (const CustomResult &r : op.results)
                if (r.name == res.name)
                    return "Result name already used in operator definition in .cus file";
            if (!nextToken(stream, group)) return "Error reading operator result in .cus file";
            int g = groupFind(group);
            if (g < 0) return "Unrecognized group id read in .cus file";
            long fo = 0;
            if (!readInt(stream, &fo)) return "Error reading fanout in OPERATOR section in .cus file";
            res.group = static_cast<int16_t>(g);
            res.fo = clamp16(fo);
            op.results.push_back(std::move(res));
        } else if (word == "ARGUMENTS") {
            while (nextToken(stream, word) && word != "_END") {
                if (word == "EndOfOPERATOR") return "Error reading operator argument in .cus file";
                for (const std::string &a : op.arguments)
                    if (a == word)
                        return "Argument name already used in operator definition in .cus file";
                op.arguments.push_back(word);
            }
            if (word != "_END") return "Error reading operator argument in .cus file";
        } else {
            return "Error parsing operator options in .cus file";
        }
    }
    return "Error parsing operator options in .cus file";
}

// Rows of an operator: one per result and argument, named by the operator;
// the argument is the source attribute, the result the destination.
void addOperatorRows(RelationDict *table, const CustomOperator &op) {
    for (const CustomResult &res : op.results) {
        size_t sources = op.arguments.empty() ? 1 : op.arguments.size();
        for (size_t i = 0; i < sources; ++i) {
            RelationRow row;
            row.relid = REL_CUSTOM;
            row.name = op.name;
            row.chpFrom = row.chpTo = REL_ANY_CHAPTER;
            row.grpFrom = RELGR_CUSTOM;
            row.grpTo = res.group;
            row.rk = REL_CUSTOM_RANK;
            row.fo = res.fo;
            row.customSource = op.arguments.empty() ? "" : op.arguments[i];
            row.customDest = res.name;
            row.opFlag = 1;
            row.kind = RELKIND_OPERATOR;
            relDictAddRow(table, row);
        }
    }
}

void readOperators(FILE *stream, RelationDict *table) {
    std::string word;
    while (nextToken(stream, word) && word != "EndOfOPERATORS") {
        if (word != "OPERATOR") continue;
        CustomOperator op;
        if (!nextToken(stream, op.name)) return;
        bool ended = false;
        if (const char *fault = readOperatorBody(stream, op, &ended)) {
            // The operator is dropped whole; reading goes on after its block.
            msgError(fault);
            if (!ended && !skipTo(stream, "EndOfOPERATOR")) return;
            continue;
        }
        addOperatorRows(table, op);
        g_customTable.operators.push_back(std::move(op));
    }
}

// The sections are looked for in their order; a missing one is passed over,
// so the search for it must not swallow the next.
void readSections(FILE *stream, RelationDict *table) {
    struct Section {
        const char *word;
        void (*read)(FILE *, RelationDict *);
    };
    static const Section sections[] = {
        {"ENUM_VALUES", [](FILE *s, RelationDict *) { readEnums(s); }},
        {"ELEMENTS_ATTRIBUTES", readElements},
        {"OPERATORS", readOperators},
    };
    for (const Section &section : sections) {
        long mark = ftell(stream);
        if (skipTo(stream, section.word))
            section.read(stream, table);
        else if (mark >= 0)
            fseek(stream, mark, SEEK_SET);
    }
}

}  // namespace

void customTableClear(CustomTable *custom) {
    if (custom) *custom = CustomTable{};
}

int reldictReadRelations(RelationDict *table, const char *path) {
    if (!table || !path) return 0;
    BinReader r;
    if (!binReaderOpen(r, path)) return 0;
    float version = 0.0f;
    int32_t magic = asciiReadHeader(r, &version);
    // Without a header of the family the file is of the oldest form: rows from
    // the start, nine fields each, version 0.
    if (magic < 0) version = 0.0f;
    FILE *stream = r.file;
    fseek(stream, static_cast<long>(r.pos), SEEK_SET);
    int result = 1;
    if (version >= REL_SECTIONED_VERSION - 0.0001f) {
        readSections(stream, table);
    } else if (skipTo(stream, "RELATIONS")) {
        readRelationRows(stream, table, magic == static_cast<int32_t>(MAGIC_SREL));
    } else {
        result = 0;
    }
    binReaderClose(r);
    return result;
}

int dbLoadRelationDictionary(RelationDict *table, const char *path, int report) {
    relDictClear(table);
    customTableClear(&g_customTable);
    int ok = reldictReadRelations(table, path);
    if (!ok && report) tol_report(TOL_ST_CANNOT_OPEN_RESOURCE, "dbLoadRelationDictionary()", path ? path : "");
    return ok;
}

int relSetActive(int32_t relid, int16_t value, int depFlag) {
    int changed = 0;
    for (RelationRow &row : g_relationDict.rows) {
        if (relid != -1 && row.relid != relid) continue;
        (depFlag ? row.actdep : row.act) = value;
        ++changed;
    }
    if (depFlag) {
        for (int slot = 0; slot < dictCount(); ++slot) {
            if (Dictionary *dict = dictGet(slot)) dict->update.dirty = dict->update2.dirty = 1;
        }
    }
    return changed;
}

int relRowByNames(const RelationDict *table, int32_t relid, const char *source,
                  const char *dest, int instance, int16_t *rk, int16_t *fo) {
    if (relid != REL_CUSTOM)
        return relRowInstance(table, relid, instance, nullptr, nullptr, nullptr, nullptr, rk, fo);
    bool noSource = !source || !*source, noDest = !dest || !*dest;
    if (noSource && noDest) {
        if (rk) *rk = REL_CUSTOM_RANK;
        if (fo) *fo = REL_CUSTOM_FANOUT;
        return 1;
    }
    if (!table) return 0;
    if (instance < 1) instance = 1;
    // Every row is looked at: attribute rows may use the custom id as well.
    for (const RelationRow &r : table->rows) {
        if (r.relid != relid) continue;
        if (r.customSource != (source ? source : "") || r.customDest != (dest ? dest : "")) continue;
        if (--instance > 0) continue;
        if (rk) *rk = r.rk;
        if (fo) *fo = r.fo;
        return 1;
    }
    return 0;
}
