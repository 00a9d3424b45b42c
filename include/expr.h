// Expressions: small assignments that set one animated parameter from a
// formula over time, other parameters, channel values and built-in
// functions. Each is compiled once into a tree of two node shapes (operators
// and leaves) and hangs in the relation graph as relation 20010, so the
// update list orders it after everything it reads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "animation.h"
#include "dictionary.h"

// ---------------------------------------------------------------------------
// Tokens of the lexer, with the numbers of the parser's table.

#define EXPR_TOKENS                                                          \
    X(T_INT, 257) X(T_REAL, 258) X(T_STRING, 259) X(T_ENUM, 260)             \
    X(T_RELID, 261) X(T_IDENT, 262) X(T_IDENT_AND_OBJECT_PARAM, 263)         \
    X(T_FRAME_START, 264) X(T_FRAME_END, 265) X(T_FRAME_CURRENT, 266)        \
    X(T_TIME, 267) X(T_PI, 268) X(T_E, 269) X(T_TRUE, 270) X(T_FALSE, 271)   \
    X(T_LINEAR_INTERP, 272) X(T_SPLINE_INTERP, 273) X(T_FORWARD, 274)        \
    X(T_BACKWARD, 275) X(T_RANDOM_BOOL, 276) X(T_RANDOM_0_1, 277)            \
    X(T_RANDOM, 278) X(T_ASS_ADD_OP, 279) X(T_ASS_SUB_OP, 280)               \
    X(T_ASS_MUL_OP, 281) X(T_ASS_DIV_OP, 282) X(T_LIKE_OP, 283)              \
    X(T_EQUAL_COND_OP, 284) X(T_NOT_EQUAL_COND_OP, 285)                      \
    X(T_LESS_COND_OP, 286) X(T_LESS_EQUAL_COND_OP, 287)                      \
    X(T_GREATER_COND_OP, 288) X(T_GREATER_EQUAL_COND_OP, 289)                \
    X(T_AND_COND_OP, 290) X(T_OR_COND_OP, 291) X(T_NOT_OP, 292)              \
    X(T_MOD, 293) X(T_MAT, 294) X(T_T2D, 295) X(T_T3D, 296) X(T_CAM, 297)    \
    X(T_LIG, 298) X(T_WAV, 299) X(T_CHN, 300)

enum ExprToken : int32_t {
    T_EOF = 0,  // end of input
#define X(name, value) name = value,
    EXPR_TOKENS
#undef X
};
const char *exprTokenName(int token);  // "T_INT", or the character itself as "'+'"

// Longest texts the lexer takes, in characters; longer ones are refused
// with "Input string too long, limit %d".
constexpr int EXPR_INPUT_LIMIT = 1024;
// Deepest nesting of the parser's stack: 150 entries doubled four times.
constexpr int EXPR_STACK_LIMIT = 2400;

struct ExprLexeme {
    int32_t token;      // ExprToken, or a character
    int32_t position;   // offset of its first character in the text
    int32_t length;     // characters it covers
    int32_t ival;       // T_INT; T_ENUM first word; T_RELID id
    int32_t ival2;      // T_ENUM second word
    int32_t word;       // the reserved word's own token (T_MOD...); 0 for none
    double rval;        // T_REAL
    std::string text;   // T_STRING without quotes, T_IDENT, element of an object parameter
    std::string param;  // T_IDENT_AND_OBJECT_PARAM: the text behind the last dot
    char axis;          // 'G', 'L' or 'D' (default)
};

// Splits `text` into lexemes, the last one T_EOF. 0, with the message in
// `error`, for a text over the limit.
int exprLex(const char *text, std::vector<ExprLexeme> *out, std::string *error);

// ---------------------------------------------------------------------------
// The tree

#define EXPR_OPS                                                                     \
    X(ASSIGN, 1, "=") X(ASSIGN_ADD, 2, "+=") X(ASSIGN_SUB, 3, "-=")                 \
    X(ASSIGN_MUL, 4, "*=") X(ASSIGN_DIV, 5, "/=") X(ADD, 6, "+") X(SUB, 7, "-")     \
    X(MUL, 8, "*") X(DIV, 9, "/") X(MODULO, 10, "%") X(NEGATE, 11, "neg")           \
    X(NOT, 12, "!") X(LIKE, 13, "LIKE") X(EQ, 14, "==") X(NE, 15, "!=")             \
    X(LT, 16, "<") X(LE, 17, "<=") X(GT, 18, ">") X(GE, 19, ">=") X(AND, 20, "&&")  \
    X(OR, 21, "||")
enum ExprOp : int32_t {
#define X(name, value, text) EXPR_OP_##name = value,
    EXPR_OPS
#undef X
};

#define EXPR_LEAVES                                                                    \
    X(INT, 0) X(REAL, 1) X(STRING, 2) X(ENUM, 3) X(FRAME_START, 4) X(FRAME_END, 5)      \
    X(FRAME_CURRENT, 6) X(TIME, 7) X(RANDOM, 8) X(PARAM, 9) X(FUNCTION, 10)           \
    X(VARIABLE, 11) X(RESERVED, 12) X(CHANNEL, 13) X(PI, 14) X(E, 15) X(TRUE, 16)      \
    X(FALSE, 17) X(LINEAR_INTERP, 18) X(SPLINE_INTERP, 19) X(RELID, 20)               \
    X(FORWARD, 21) X(BACKWARD, 22) X(CUSTOM_PARAM, 23)
enum ExprLeafKind : int32_t {
#define X(name, value) EXPR_LEAF_##name = value,
    EXPR_LEAVES
#undef X
};
const char *exprOpName(int op);      // "+", "==", ...; "?" for none
const char *exprLeafName(int kind);  // "INT", "PARAM", ...; "?" for none

constexpr int32_t EXPR_SUB_UNSET = -2;  // sub fcurve id not given
constexpr int32_t EXPR_SUB_ALL = -1;    // sub fcurve id standing for all

// A parameter of an element (leaf kinds 9 and 23).
struct ExprParamRef {
    int32_t chapter;      // chapter of the element; -1 unresolved
    int32_t element;      // its index; -1 unresolved (reads 0)
    int32_t param;        // row of the parameter table; -1 unknown
    int32_t curveType;    // fcurve type of the parameter
    int32_t subId;        // EXPR_SUB_UNSET, EXPR_SUB_ALL or an instance
    char axis;            // 'G' global, 'L' local, 'D' default (local)
    int32_t isThis;       // 1: "this", the expression's own element
    std::string name;     // element name as written
    std::string custom;   // parameter name of a custom effect (kind 23)
};

// A degree of freedom of a channel driver (leaf kind 13).
struct ExprChannelRef {
    int32_t driver;       // driver index in the scene's setup; -1 unresolved (reads 0)
    int32_t dof;          // DOF index
    int32_t direction;    // ChannelDirection of the DOF
    std::string driverName, dofName;
};

// A random source (leaf kind 8).
struct ExprRandom {
    int32_t seed;     // -1: no table, a fresh draw at each evaluation
    int32_t isInt;    // 1: integer range
    double lower;     // lower bound
    double width;     // upper bound minus lower
    int32_t slot;     // table slot, given at parse time; -1 unseeded
};

struct Expression;

struct ExprNode {
    int32_t isLeaf;                // 0 operator node, 1 leaf
    int32_t op;                    // operator: ExprOp; leaf: ExprLeafKind
    ExprNode *left, *right;        // operator children (right only for unary ones)
    // Leaf payload, by kind.
    int32_t ival, ival2;           // INT, ENUM pair, RELID, FUNCTION number
    double rval;                   // REAL, PI, E
    std::string text;              // STRING, VARIABLE name
    std::unique_ptr<ExprParamRef> ref;      // PARAM, CUSTOM_PARAM
    std::unique_ptr<ExprChannelRef> chan;   // CHANNEL
    std::unique_ptr<ExprRandom> random;     // RANDOM
    std::vector<ExprNode *> args;           // FUNCTION arguments, in order
    const Expression *variable;    // VARIABLE: the named expression, owned by its file
    int32_t position;              // offset in the source text
};

// A compiled expression: the element of the EXPRESSIONS chapter holds it.
struct Expression {
    std::string name;                 // its name in its file
    std::string text;                 // source text
    ExprNode *root = nullptr;         // assignment node (left: the affected object); or the body
    int32_t bodyOnly = 0;             // 1: "= expr", evaluated without assignment
    int32_t compiled = 0;             // 1 after a good parse
    std::vector<std::unique_ptr<ExprNode>> nodes;  // every node of the tree
    std::vector<std::string> variables;            // names of the variables used
    int32_t hasVariables = 0;         // 1 when a variable stands in the tree
    int32_t randomSlots = 0;          // seeded random sources
    std::vector<ExprNode *> randoms;  // seeded random leaves by slot
    std::vector<std::vector<double>> tables;  // per slot one value per frame of the range
    int32_t tableStart = 0;           // first frame the tables were filled for
    int32_t tableFrames = 0;          // frames of each table
    int32_t ownChapter = -1;          // chapter of the element "this" stands for
    int32_t ownElement = -1;          // its index
    int32_t serial = -1;              // serial of its relation run; -1 before connection
    int32_t exprIndex = -1;           // its element in the EXPRESSIONS chapter
};

// ---------------------------------------------------------------------------
// Parsing

struct ExprParseOptions {
    Dictionary *dict = nullptr;   // elements are resolved in it; null: names only
    int checkOnly = 0;            // 1: the same parse, no tree kept
    int ownChapter = -1;          // the element "this" stands for; -1: the target's
    int32_t ownElement = -1;
    // Named expressions usable as variables; null: none.
    const std::vector<Expression *> *variables = nullptr;
    int quiet = 0;                // 1: messages are only kept, not reported
};

struct ExprParseError {
    std::string message;  // the system's words
    int32_t position;     // offset in the text where the offending word stands
};

// Parses `text` into `out` (its tree replaced). 1 on success; 0 with the
// messages in `errors` (may be null), each reported through the reporter
// unless quiet.
int expressionParse(const char *text, Expression *out, const ExprParseOptions &options,
                    std::vector<ExprParseError> *errors);
// Prints "message", the text and a caret under the place, to the error stream.
void expressionReport(const char *text, const ExprParseError &error);
// The tree, one node a line, indented by depth.
std::string expressionTreeText(const ExprNode *node);

// ---------------------------------------------------------------------------
// Evaluation

enum ExprResultTag : int32_t {
    EXPR_RESULT_FLOAT = 1,
    EXPR_RESULT_ENUM = 3,
    EXPR_RESULT_INT = 4,
    EXPR_RESULT_STRING = 5,
};

struct ExprValue {
    int32_t tag;          // ExprResultTag
    int32_t ival, ival2;  // INT; ENUM pair
    double fval;          // FLOAT
    const char *sval;     // STRING, owned by the tree; null for none
};
double exprNumber(const ExprValue &v);  // integer or float as a double; 0 otherwise

#define EXPR_STATUSES                                                                      \
    X(0, "")                                                                               \
    X(1, "The given cluster doesn't match the fcurve interpolation type.")                 \
    X(2, "Invalid sub fcurve id.")                                                         \
    X(3, "Invalid cluster name.")                                                          \
    X(4, "Expression divided by 0")                                                        \
    X(5, "Square root: Argument Invalid ")                                                 \
    X(6, "Power : Domain error ")                                                          \
    X(7, "Logarithm : Argument Invalid")
constexpr int EXPR_STATUS_DIVIDE = 4;
constexpr int EXPR_STATUS_SQRT = 5;
constexpr int EXPR_STATUS_POW = 6;
constexpr int EXPR_STATUS_LOG = 7;
const char *exprStatusMessage(int status);  // "" for 0 and unknown ones

// What an evaluation sees of the scene.
struct ExprEvalScene {
    Dictionary *dict;    // elements of parameter references; null: they read 0
    int32_t startFrame;  // first frame of the scene (Fs)
    int32_t endFrame;    // last frame (Fe)
    float frameRate;     // frames per second
};
// The scene of the calling thread's current scene state and `dict`.
ExprEvalScene exprEvalSceneOf(Dictionary *dict);

// Evaluates `node` of `expression`: the result in `out`, a status 0 to 7 in
// `status` (the last one set wins). `randomTables` are the expression's
// (null: seeded sources draw afresh). Assignments store into their target.
void expressionEval(Expression *expression, const ExprNode *node, ExprValue *out,
                    std::vector<std::vector<double>> *randomTables, int32_t frameIndex,
                    int32_t frame, float time, int *status, const ExprEvalScene &scene);
// The whole expression at a frame: the tables rebuilt when short, the tree
// evaluated (body only without assignment). Status as above.
ExprValue expressionRun(Expression *expression, const ExprEvalScene &scene, float time,
                        int *status);
// Fills the expression's random tables for `frames` frames from `start`.
void expressionRandomTables(Expression *expression, int32_t start, int32_t frames);

// Lattice noise in [0, 1] over a table of 65536 values.
double noise3(double x, double y, double z);

// The functions of the language, by number.
struct ExprFunctionInfo {
    const char *keyword;     // as written
    const char *display;     // display name
    const char *argTemplate; // argument template for the user interface
    int32_t count;           // arguments; -1 for any
};
int exprFunctionCount();
int exprFunctionFind(const char *keyword);  // number, or -1
const ExprFunctionInfo *exprFunctionInfo(int number);

// ---------------------------------------------------------------------------
// In the scene

// The handler of relation 20010 for expression records (installed in
// g_evalHooks.expressionRecord by exprInstall).
void expressionEvalRecord(UpdateRecord *record, float time);
// Installs the expression `exprIndex` of the EXPRESSIONS chapter: relation
// 20010 from its target to it and to every element it reads, under one serial,
// after dropping its old relations. A cycle is refused with "This expression
// would generate a cycle in dependencies. Please modify it." and nothing stays
// connected. 1 when connected.
int expressionConnect(Dictionary *dict, int32_t exprIndex, Expression *expression);
// Compiles and connects the expressions of the loaded files of the chapter;
// one that does not compile is reported "Expression invalide(%s)!" with its
// name and stays unconnected. Number connected.
int expressionsLoadScene(Dictionary *dict);
// The expression held by an element of the EXPRESSIONS chapter, or null.
Expression *expressionOf(Dictionary *dict, int32_t exprIndex);
// Hooks of the evaluation, the reader of the chapter and the step of the load.
void exprInstall();

// An expressions file: named texts, in file order.
struct ExprFileEntry {
    std::string name;  // the expression's name
    std::string text;  // its source text
};
// Reads "<path>". 0, reported on the error stream with the file and line, when
// the file cannot be opened or is not an expressions file; bad lines are
// reported and skipped.
int exprFileRead(const char *path, std::vector<ExprFileEntry> *entries);
int exprFileWrite(const char *path, const std::vector<ExprFileEntry> &entries);  // 1 or 0
