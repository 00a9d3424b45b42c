// The lexer of expressions: each token is the longest match among the forms
// of the language; words are looked up as reserved words, dictionary enums,
// function keywords and relation names, in that order.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "expr.h"
#include "expr_internal.h"

namespace {

struct Reserved {
    const char *word;   // as written, exact case
    int32_t token;      // its own token
    int32_t chapter;    // element classes: the chapter; -1 otherwise
};

// Element classes come out as T_ENUM carrying their chapter, as the grammar
// takes an element's class from an enum.
const Reserved kReserved[] = {
    {"MOD", T_MOD, CHP_MODELS},          {"MAT", T_MAT, CHP_MATERIALS},
    {"T2D", T_T2D, CHP_TEXTURES2D},      {"T3D", T_T3D, CHP_TEXTURES3D},
    {"CAM", T_CAM, CHP_CAMERAS},         {"LIG", T_LIG, CHP_LIGHTS},
    {"WAV", T_WAV, CHP_WAVES},           {"CHN", T_CHN, CHP_CHANNEL_DRIVERS},
    {"Fc", T_FRAME_CURRENT, -1},         {"Fs", T_FRAME_START, -1},
    {"Fe", T_FRAME_END, -1},             {"T", T_TIME, -1},
    {"randBool", T_RANDOM_BOOL, -1},     {"rand_0_1", T_RANDOM_0_1, -1},
    {"RAND", T_RANDOM, -1},              {"PI", T_PI, -1},
    {"E", T_E, -1},                      {"TRUE", T_TRUE, -1},
    {"FALSE", T_FALSE, -1},              {"LinearInterp", T_LINEAR_INTERP, -1},
    {"SplineInterp", T_SPLINE_INTERP, -1}, {"FORWARD", T_FORWARD, -1},
    {"BACKWARD", T_BACKWARD, -1},
};

struct TwoChar {
    const char *text;
    int32_t token;
};
// Two characters before one: "<=" before "<", "!=" before "!".
const TwoChar kOperators[] = {
    {"==", T_EQUAL_COND_OP},      {"!=", T_NOT_EQUAL_COND_OP}, {"<=", T_LESS_EQUAL_COND_OP},
    {">=", T_GREATER_EQUAL_COND_OP}, {"&&", T_AND_COND_OP},    {"||", T_OR_COND_OP},
    {"+=", T_ASS_ADD_OP},         {"-=", T_ASS_SUB_OP},        {"*=", T_ASS_MUL_OP},
    {"/=", T_ASS_DIV_OP},         {"<", T_LESS_COND_OP},       {">", T_GREATER_COND_OP},
    {"!", T_NOT_OP},
};

bool wordChar(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.'; }

// A word without a dot.
void plainWord(const std::string &word, ExprLexeme &lx) {
    lx.text = word;
    for (const Reserved &r : kReserved)
        if (word == r.word) {
            lx.word = r.token;
            if (r.chapter >= 0) {
                lx.token = T_ENUM;
                lx.ival = r.chapter;
                lx.ival2 = -1;
            } else {
                lx.token = r.token;
            }
            return;
        }
    // Dictionary enums: a value gives (enum, value); the enum's own name is
    // the form kept for enums without a value, the wildcard -1, -1.
    for (size_t e = 0; e < g_customTable.enums.size(); ++e) {
        const CustomEnum &en = g_customTable.enums[e];
        for (const auto &v : en.values)
            if (v.second == word) {
                lx.token = T_ENUM;
                lx.ival = static_cast<int32_t>(e);
                lx.ival2 = v.first;
                return;
            }
        if (en.name == word) {
            lx.token = T_ENUM;
            lx.ival = -1;
            lx.ival2 = -1;
            return;
        }
    }
    // Function keywords stay identifiers: the parser knows them by name.
    if (exprFunctionFind(word.c_str()) >= 0) {
        lx.token = T_IDENT;
        return;
    }
    int row = relRowFindByName(&g_relationDict, word.c_str());
    if (row >= 0) {
        lx.token = T_RELID;
        lx.ival = g_relationDict.rows[static_cast<size_t>(row)].relid;
        return;
    }
    lx.token = T_IDENT;
}

// A word with a dot: a float when "%f%n" reads all of it, else an object
// parameter "element[.G|.L].param".
void dottedWord(const std::string &word, ExprLexeme &lx) {
    float f = 0;
    int used = 0;
    if (sscanf(word.c_str(), "%f%n", &f, &used) == 1 && used == static_cast<int>(word.size())) {
        lx.token = T_REAL;
        lx.rval = atof(word.c_str());
        return;
    }
    size_t dot = word.rfind('.');
    lx.token = T_IDENT_AND_OBJECT_PARAM;
    lx.param = word.substr(dot + 1);
    std::string element = word.substr(0, dot);
    lx.axis = 'D';
    if (element.size() >= 2 && element[element.size() - 2] == '.') {
        char c = static_cast<char>(toupper(static_cast<unsigned char>(element.back())));
        if (c == 'G' || c == 'L') {
            lx.axis = c;
            element.resize(element.size() - 2);
        }
    }
    lx.text = element;
}

}  // namespace

const char *exprTokenName(int token) {
    switch (token) {
    case T_EOF: return "end of input";
#define X(name, value) \
    case name: return #name;
        EXPR_TOKENS
#undef X
    }
    static thread_local char buffer[8];
    snprintf(buffer, sizeof buffer, "'%c'", token > 32 && token < 127 ? token : '?');
    return buffer;
}

int exprLex(const char *text, std::vector<ExprLexeme> *out, std::string *error) {
    out->clear();
    if (!text) text = "";
    const size_t size = strlen(text);
    if (size > static_cast<size_t>(EXPR_INPUT_LIMIT)) {
        char message[64];
        snprintf(message, sizeof message, "Input string too long, limit %d", EXPR_INPUT_LIMIT);
        if (error) *error = message;
        return 0;
    }
    size_t i = 0;
    for (;;) {
        while (i < size && isspace(static_cast<unsigned char>(text[i]))) ++i;
        ExprLexeme lx{};
        lx.axis = 'D';
        lx.position = static_cast<int32_t>(i);
        if (i >= size) {
            lx.token = T_EOF;
            out->push_back(lx);
            return 1;
        }
        const char c = text[i];
        // A number: digits, a point, an exponent; a word character right
        // behind it makes it a word instead.
        if (isdigit(static_cast<unsigned char>(c)) ||
            (c == '.' && isdigit(static_cast<unsigned char>(text[i + 1])))) {
            size_t end = i;
            while (isdigit(static_cast<unsigned char>(text[end]))) ++end;
            bool real = false;
            if (text[end] == '.') {
                real = true;
                ++end;
                while (isdigit(static_cast<unsigned char>(text[end]))) ++end;
            }
            if ((text[end] == 'e' || text[end] == 'E') &&
                (isdigit(static_cast<unsigned char>(text[end + 1])) ||
                 ((text[end + 1] == '+' || text[end + 1] == '-') && isdigit(static_cast<unsigned char>(text[end + 2]))))) {
                real = true;
                end += 2;
                while (isdigit(static_cast<unsigned char>(text[end]))) ++end;
            }
            if (!wordChar(text[end])) {
                const std::string number(text + i, end - i);
                if (real) {
                    lx.token = T_REAL;
                    lx.rval = atof(number.c_str());
                } else {
                    lx.token = T_INT;
                    lx.ival = static_cast<int32_t>(strtol(number.c_str(), nullptr, 10));
                }
                lx.length = static_cast<int32_t>(end - i);
                i = end;
                out->push_back(lx);
                continue;
            }
        }
        if (wordChar(c)) {
            // The longest run of word characters; a run that starts with a
            // digit and holds no dot is a digit string only.
            size_t end = i;
            while (end < size && wordChar(text[end])) ++end;
            std::string word(text + i, end - i);
            if (isdigit(static_cast<unsigned char>(c)) && word.find('.') == std::string::npos) {
                end = i;
                while (end < size && isdigit(static_cast<unsigned char>(text[end]))) ++end;
                lx.token = T_INT;
                lx.ival = static_cast<int32_t>(strtol(std::string(text + i, end - i).c_str(), nullptr, 10));
            } else if (word == "LIKE") {
                lx.token = T_LIKE_OP;
            } else if (word.find('.') != std::string::npos) {
                dottedWord(word, lx);
            } else {
                plainWord(word, lx);
            }
            lx.length = static_cast<int32_t>(end - i);
            i = end;
            out->push_back(lx);
            continue;
        }
        if (c == '"') {
            const char *close = strchr(text + i + 1, '"');
            if (close) {
                lx.token = T_STRING;
                lx.text.assign(text + i + 1, close);
                lx.length = static_cast<int32_t>(close - (text + i) + 1);
                i += static_cast<size_t>(lx.length);
                out->push_back(lx);
                continue;
            }
        }
        bool matched = false;
        for (const TwoChar &op : kOperators) {
            size_t n = strlen(op.text);
            if (strncmp(text + i, op.text, n) == 0) {
                lx.token = op.token;
                lx.length = static_cast<int32_t>(n);
                matched = true;
                break;
            }
        }
        if (!matched) {
            lx.token = static_cast<unsigned char>(c);
            lx.length = 1;
        }
        i += static_cast<size_t>(lx.length);
        out->push_back(lx);
    }
}
