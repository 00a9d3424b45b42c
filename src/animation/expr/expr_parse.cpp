// The parser of expressions: a descent over the rules of the grammar with
// the precedence `||` lowest, then `&&`, comparisons and LIKE, `+ -`,
// `* / %`, the unary operators. It builds the tree, resolves parameter,
// channel, variable and function references, and reports through one
// reporter that marks the place of the offending word.
#include <cstdio>
#include <cstring>

#include "expr_internal.h"
#include "model.h"
#include "tol_status.h"

namespace {

struct Parser {
    const char *text;
    const std::vector<ExprLexeme> &tokens;
    const ExprParseOptions &options;
    Expression *out;
    std::vector<ExprParseError> *errors;
    size_t at = 0;
    int depth = 0;        // entries of the parser's stack in use
    int stackSize = 150;  // grows by doubling up to EXPR_STACK_LIMIT
    bool failed = false;
    ExprParseError first{};
    int randomSlots = 0;

    const ExprLexeme &peek() const { return tokens[at]; }
    int tok() const { return tokens[at].token; }

    // The reporter: the place is found by searching the offending word
    // backward from where the scan stands.
    void error(const char *message, const std::string &word) {
        if (failed) return;
        failed = true;
        int32_t end = at < tokens.size() ? tokens[at].position + tokens[at].length : 0;
        int32_t position = end;
        if (!word.empty()) {
            std::string before(text, static_cast<size_t>(end) <= strlen(text) ? static_cast<size_t>(end) : strlen(text));
            size_t found = before.rfind(word);
            if (found != std::string::npos) position = static_cast<int32_t>(found);
        } else if (at < tokens.size()) {
            position = tokens[at].position;
        }
        first = ExprParseError{message, position};
    }
    void syntaxError() { error("syntax error", std::string()); }

    ExprNode *node(int isLeaf, int op, int position) {
        auto n = std::make_unique<ExprNode>();
        n->isLeaf = isLeaf;
        n->op = op;
        n->left = n->right = nullptr;
        n->ival = n->ival2 = 0;
        n->rval = 0;
        n->variable = nullptr;
        n->position = position;
        ExprNode *raw = n.get();
        out->nodes.push_back(std::move(n));
        return raw;
    }
    ExprNode *leaf(int kind, int position) { return node(1, kind, position); }
    ExprNode *opNode(int op, ExprNode *l, ExprNode *r, int position) {
        ExprNode *n = node(0, op, position);
        n->left = l;
        n->right = r;
        return n;
    }

    // Each nested rule takes a stack entry; the stack doubles when full.
    bool push() {
        if (++depth > stackSize) {
            if (stackSize * 2 > EXPR_STACK_LIMIT) {
                error("yacc stack overflow", std::string());
                return false;
            }
            stackSize *= 2;
        }
        return true;
    }
    void pop() { --depth; }

    // -----------------------------------------------------------------------
    // References

    // object_id: object_type T_IDENT_AND_OBJECT_PARAM; `target` for the
    // affected object.
    ExprNode *objectId(int chapter, bool classGiven, bool target) {
        const ExprLexeme lx = peek();
        ++at;
        if (lx.param.empty()) {
            error("A function curve must be specified", lx.text);
            return nullptr;
        }
        if (classGiven && chapter == CHP_CHANNEL_DRIVERS) return channelRef(lx, target);
        if (classGiven && (chapter < 0 || chapter >= CHAPTER_COUNT)) {
            error("Invalid Chapter Id", lx.text);
            return nullptr;
        }
        auto ref = std::make_unique<ExprParamRef>();
        ref->chapter = classGiven ? chapter : -1;
        ref->element = -1;
        ref->param = -1;
        ref->curveType = 0;
        ref->subId = EXPR_SUB_UNSET;
        ref->axis = lx.axis;
        ref->isThis = lx.text == "this";
        ref->name = lx.text;
        if (!resolveElement(*ref, lx, target)) return nullptr;
        if (!resolveParam(*ref, lx)) return nullptr;
        if (ref->axis != 'D') {
            if (ref->chapter != CHP_MODELS) {
                error(".G or .L not allowed for this type of element.", lx.text);
                return nullptr;
            }
            int t = ref->curveType;
            if (!((t >= 1 && t <= 6) || (t >= 139 && t <= 141))) {
                error(".G or .L not allowed for the given parameter.", lx.param);
                return nullptr;
            }
        }
        ExprNode *n = leaf(EXPR_LEAF_PARAM, lx.position);
        n->ref = std::move(ref);
        return n;
    }

    // Chapters whose elements have parameters of their own, in the order an
    // element without a class is looked for.
    static constexpr int kParamChapters[] = {CHP_MODELS, CHP_CAMERAS, CHP_LIGHTS};

    bool resolveElement(ExprParamRef &ref, const ExprLexeme &lx, bool target) {
        if (ref.isThis) {
            int chapter = options.ownChapter >= 0 ? options.ownChapter : out->ownChapter;
            int32_t element = options.ownChapter >= 0 ? options.ownElement : out->ownElement;
            if (chapter < 0) {
                if (target || !options.dict) return true;  // stays "this" until connected
                error("No such element: this", lx.text);
                return false;
            }
            ref.chapter = chapter;
            ref.element = element;
            return true;
        }
        if (!options.dict) return true;  // names only
        auto find = [&](int chapter) {
            return elemFindByName(options.dict, chapter, -1, nullptr, lx.text.c_str(), -1, -1, 0);
        };
        if (ref.chapter >= 0) {
            ref.element = find(ref.chapter);
        } else {
            for (int c : kParamChapters)
                if ((ref.element = find(c)) >= 0) {
                    ref.chapter = c;
                    break;
                }
        }
        if (ref.element < 0) {
            error("No such element", lx.text);
            return false;
        }
        return true;
    }

    bool resolveParam(ExprParamRef &ref, const ExprLexeme &lx) {
        int param = -1;
        if (ref.chapter >= 0) {
            param = paramLookup(ref.chapter, lx.param.c_str());
        } else {
            for (int c : kParamChapters)
                if ((param = paramLookup(c, lx.param.c_str())) >= 0) {
                    if (!ref.isThis) ref.chapter = c;
                    break;
                }
        }
        if (param < 0) {
            // A shape's key or a curve instance: "name_number".
            char base[128];
            int sub = 0;
            if (lx.param.size() < sizeof base && sscanf(lx.param.c_str(), "%127[^_]_%d", base, &sub) == 2) {
                if (strcmp(base, "shape") == 0) {
                    const Element *e = options.dict && ref.chapter == CHP_MODELS
                                           ? elemGet(options.dict, ref.chapter, ref.element)
                                           : nullptr;
                    const Model *m = e ? static_cast<const Model *>(e->data) : nullptr;
                    if (!m || m->shapeCount == 0) {
                        error("No shape exists for this model.", lx.param);
                        return false;
                    }
                    error("Information doesn't match the type of shape parameter", lx.param);
                    return false;
                }
                bool known = false;
                for (int c : kParamChapters) known = known || paramLookup(c, base) >= 0;
                if (known) {
                    error("Invalid sub fcurve id.", lx.param);
                    return false;
                }
            }
            error("Unknown parameter", lx.param);
            return false;
        }
        ParamInfo info{};
        paramInfo(param, &info);
        ref.param = param;
        ref.curveType = info.curveType;
        return true;
    }

    ExprNode *channelRef(const ExprLexeme &lx, bool target) {
        auto chan = std::make_unique<ExprChannelRef>();
        chan->driver = chan->dof = -1;
        chan->direction = 0;
        chan->driverName = lx.text;
        chan->dofName = lx.param;
        if (g_evalHooks.channelDofFind) {
            if (!g_evalHooks.channelDofFind(lx.text.c_str(), lx.param.c_str(), &chan->driver,
                                            &chan->dof, &chan->direction)) {
                error("No such driver name or dof name", lx.text);
                return nullptr;
            }
            // Input DOFs are the driver's to write, output DOFs the scene's.
            if (target && chan->direction == 1) {
                error("Cant use input DOF here", lx.text);
                return nullptr;
            }
            if (!target && chan->direction == 2) {
                error("Cant use output DOF here", lx.text);
                return nullptr;
            }
        }
        ExprNode *n = leaf(EXPR_LEAF_CHANNEL, lx.position);
        n->chan = std::move(chan);
        return n;
    }

    // -----------------------------------------------------------------------
    // Statements

    bool parseStatement() {
        if (tok() == T_EOF) return true;  // empty
        if (tok() == '=') {
            ++at;
            out->bodyOnly = 1;
            out->root = exprNode();
            if (failed) return false;
            if (tok() != T_EOF) syntaxError();
            return !failed;
        }
        // affected_obj: object_type T_IDENT_AND_OBJECT_PARAM
        int chapter = -1;
        bool classGiven = false;
        if (tok() == T_ENUM) {
            chapter = peek().ival;
            classGiven = true;
            if (peek().word == 0) chapter = -2;  // a value enum names no chapter
            ++at;
        }
        if (tok() != T_IDENT_AND_OBJECT_PARAM) {
            syntaxError();
            return false;
        }
        ExprNode *target = objectId(chapter, classGiven, true);
        if (failed) return false;
        if (target->ref && !target->ref->isThis && out->ownChapter < 0) {
            out->ownChapter = target->ref->chapter;
            out->ownElement = target->ref->element;
        }
        int op = 0;
        switch (tok()) {
        case '=': op = EXPR_OP_ASSIGN; break;
        case T_ASS_ADD_OP: op = EXPR_OP_ASSIGN_ADD; break;
        case T_ASS_SUB_OP: op = EXPR_OP_ASSIGN_SUB; break;
        case T_ASS_MUL_OP: op = EXPR_OP_ASSIGN_MUL; break;
        case T_ASS_DIV_OP: op = EXPR_OP_ASSIGN_DIV; break;
        default: syntaxError(); return false;
        }
        int position = peek().position;
        ++at;
        ExprNode *value = nullptr;
        if (tok() != T_EOF) {
            value = exprNode();
            if (failed) return false;
            if (tok() != T_EOF) {
                syntaxError();
                return false;
            }
        }
        out->root = opNode(op, target, value, position);
        return true;
    }

    // -----------------------------------------------------------------------
    // expr_node, by precedence

    static int binaryOp(int token, int level) {
        switch (level) {
        case 0: return token == T_OR_COND_OP ? EXPR_OP_OR : 0;
        case 1: return token == T_AND_COND_OP ? EXPR_OP_AND : 0;
        case 2:
            switch (token) {
            case T_EQUAL_COND_OP: return EXPR_OP_EQ;
            case T_NOT_EQUAL_COND_OP: return EXPR_OP_NE;
            case T_LESS_COND_OP: return EXPR_OP_LT;
            case T_LESS_EQUAL_COND_OP: return EXPR_OP_LE;
            case T_GREATER_COND_OP: return EXPR_OP_GT;
            case T_GREATER_EQUAL_COND_OP: return EXPR_OP_GE;
            case T_LIKE_OP: return EXPR_OP_LIKE;
            }
            return 0;
        case 3: return token == '+' ? EXPR_OP_ADD : token == '-' ? EXPR_OP_SUB : 0;
        case 4:
            return token == '*' ? EXPR_OP_MUL : token == '/' ? EXPR_OP_DIV : token == '%' ? EXPR_OP_MODULO : 0;
        }
        return 0;
    }

    ExprNode *exprNode() { return binary(0); }

    ExprNode *binary(int level) {
        if (level > 4) return unary();
        ExprNode *left = binary(level + 1);
        while (!failed) {
            int op = binaryOp(tok(), level);
            if (!op) break;
            int position = peek().position;
            ++at;
            ExprNode *right = binary(level + 1);
            if (failed) return nullptr;
            left = opNode(op, left, right, position);
        }
        return failed ? nullptr : left;
    }

    static bool startsExpr(int token) {
        switch (token) {
        case '(': case '-': case '+': case T_NOT_OP: case T_INT: case T_REAL: case T_STRING:
        case T_ENUM: case T_RELID: case T_FRAME_START: case T_FRAME_END: case T_FRAME_CURRENT:
        case T_TIME: case T_PI: case T_E: case T_TRUE: case T_FALSE: case T_LINEAR_INTERP:
        case T_SPLINE_INTERP: case T_FORWARD: case T_BACKWARD: case T_RANDOM_BOOL:
        case T_RANDOM_0_1: case T_RANDOM: case T_IDENT_AND_OBJECT_PARAM: case T_IDENT:
            return true;
        }
        return false;
    }

    ExprNode *unary() {
        if (!push()) return nullptr;
        ExprNode *result = nullptr;
        const int position = peek().position;
        switch (tok()) {
        case '-':
            ++at;
            if (ExprNode *operand = unary()) result = opNode(EXPR_OP_NEGATE, nullptr, operand, position);
            break;
        case '+':
            ++at;
            result = unary();
            break;
        case T_NOT_OP:
            ++at;
            if (ExprNode *operand = unary()) result = opNode(EXPR_OP_NOT, nullptr, operand, position);
            break;
        case '(':
            ++at;
            result = exprNode();
            if (!failed && tok() != ')') {
                syntaxError();
                result = nullptr;
            } else if (!failed) {
                ++at;
            }
            break;
        default: result = primary(); break;
        }
        pop();
        return failed ? nullptr : result;
    }

    ExprNode *constantLeaf(int kind) {
        ExprNode *n = leaf(kind, peek().position);
        ++at;
        return n;
    }

    ExprNode *primary() {
        const ExprLexeme &lx = peek();
        ExprNode *n = nullptr;
        switch (lx.token) {
        case T_INT:
            n = constantLeaf(EXPR_LEAF_INT);
            n->ival = lx.ival;
            return n;
        case T_REAL:
            n = constantLeaf(EXPR_LEAF_REAL);
            n->rval = lx.rval;
            return n;
        case T_STRING:
            n = constantLeaf(EXPR_LEAF_STRING);
            n->text = lx.text;
            return n;
        case T_RELID:
            n = constantLeaf(EXPR_LEAF_RELID);
            n->ival = lx.ival;
            return n;
        case T_FRAME_START: return constantLeaf(EXPR_LEAF_FRAME_START);
        case T_FRAME_END: return constantLeaf(EXPR_LEAF_FRAME_END);
        case T_FRAME_CURRENT: return constantLeaf(EXPR_LEAF_FRAME_CURRENT);
        case T_TIME: return constantLeaf(EXPR_LEAF_TIME);
        case T_PI:
            n = constantLeaf(EXPR_LEAF_PI);
            n->rval = 3.14159274;
            return n;
        case T_E:
            n = constantLeaf(EXPR_LEAF_E);
            n->rval = 2.71828175;
            return n;
        case T_TRUE: return constantLeaf(EXPR_LEAF_TRUE);
        case T_FALSE: return constantLeaf(EXPR_LEAF_FALSE);
        case T_LINEAR_INTERP: return constantLeaf(EXPR_LEAF_LINEAR_INTERP);
        case T_SPLINE_INTERP: return constantLeaf(EXPR_LEAF_SPLINE_INTERP);
        case T_FORWARD: return constantLeaf(EXPR_LEAF_FORWARD);
        case T_BACKWARD: return constantLeaf(EXPR_LEAF_BACKWARD);
        case T_RANDOM_BOOL:
        case T_RANDOM_0_1:
        case T_RANDOM: return randomForm();
        case T_ENUM:
            // An enum is a value unless an object parameter follows: then it
            // is the object's class.
            if (tokens[at + 1].token == T_IDENT_AND_OBJECT_PARAM) {
                int chapter = lx.word ? lx.ival : -2;
                ++at;
                return objectId(chapter, true, false);
            }
            n = constantLeaf(EXPR_LEAF_ENUM);
            n->ival = lx.ival;
            n->ival2 = lx.ival2;
            return n;
        case T_IDENT_AND_OBJECT_PARAM: return objectId(-1, false, false);
        case T_IDENT: return identifier();
        }
        syntaxError();
        return nullptr;
    }

    // seed : empty | '-' | T_INT
    bool seed(int32_t *value) {
        *value = -1;
        if (tok() == '-') {
            ++at;
        } else if (tok() == T_INT) {
            *value = peek().ival;
            ++at;
        }
        return true;
    }

    // posneg_real or posneg_int; `isInt` is set by the first bound.
    bool bound(int wanted, double *value) {
        int sign = 1;
        if (tok() == '-' || tok() == '+') {
            sign = tok() == '-' ? -1 : 1;
            ++at;
        }
        if (tok() != wanted) {
            syntaxError();
            return false;
        }
        *value = sign * (wanted == T_INT ? static_cast<double>(peek().ival) : peek().rval);
        ++at;
        return true;
    }

    ExprNode *randomForm() {
        const ExprLexeme lx = peek();
        ++at;
        auto r = std::make_unique<ExprRandom>();
        r->isInt = 0;
        r->lower = 0;
        r->width = 1;
        if (lx.token == T_RANDOM_BOOL) r->isInt = 1;
        if (tok() != '(') {
            syntaxError();
            return nullptr;
        }
        ++at;
        seed(&r->seed);
        if (lx.token == T_RANDOM) {
            if (tok() != ',') {
                syntaxError();
                return nullptr;
            }
            ++at;
            // "RAND(seed," alone keeps the range of rand_0_1.
            if (tok() == T_INT || tok() == T_REAL || tok() == '-' || tok() == '+') {
                size_t look = at + ((tok() == '-' || tok() == '+') ? 1 : 0);
                int kind = tokens[look].token == T_INT ? T_INT : T_REAL;
                double low = 0, high = 0;
                if (!bound(kind, &low)) return nullptr;
                if (tok() != ',') {
                    syntaxError();
                    return nullptr;
                }
                ++at;
                if (!bound(kind, &high)) return nullptr;
                if (tok() != ')') {
                    syntaxError();
                    return nullptr;
                }
                ++at;
                r->isInt = kind == T_INT;
                r->lower = low;
                r->width = high - low;
            }
        } else {
            if (tok() != ')') {
                syntaxError();
                return nullptr;
            }
            ++at;
        }
        r->slot = r->seed >= 0 ? randomSlots++ : -1;
        ExprNode *n = leaf(EXPR_LEAF_RANDOM, lx.position);
        n->random = std::move(r);
        if (n->random->slot >= 0) out->randoms.push_back(n);
        return n;
    }

    const Expression *variableNamed(const std::string &name) const {
        if (!options.variables) return nullptr;
        for (const Expression *e : *options.variables)
            if (e && e->name == name) return e;
        return nullptr;
    }

    // T_IDENT id_with_param: a variable, or a function call.
    ExprNode *identifier() {
        const ExprLexeme lx = peek();
        ++at;
        if (tok() != '(') {
            const Expression *v = variableNamed(lx.text);
            if (!v || !v->compiled || !v->root) {
                error("Variable not defined or empty", lx.text);
                return nullptr;
            }
            if (v->hasVariables) {
                error("Cannot use a variable within a variable.", lx.text);
                return nullptr;
            }
            ExprNode *n = leaf(EXPR_LEAF_VARIABLE, lx.position);
            n->text = lx.text;
            n->variable = v;
            out->hasVariables = 1;
            out->variables.push_back(lx.text);
            return n;
        }
        ++at;  // '('
        int number = exprFunctionFind(lx.text.c_str());
        if (number < 0) {
            error("Unknown function", lx.text);
            return nullptr;
        }
        ExprNode *n = leaf(EXPR_LEAF_FUNCTION, lx.position);
        n->ival = number;
        if (startsExpr(tok())) {
            // fct_arg_list ')'
            for (;;) {
                ExprNode *arg = exprNode();
                if (failed) return nullptr;
                n->args.push_back(arg);
                if (tok() == ',') {
                    ++at;
                    continue;
                }
                if (tok() != ')') {
                    syntaxError();
                    return nullptr;
                }
                ++at;
                break;
            }
        } else if (exprFunctionInfo(number)->count != -1) {
            // '(' alone: only functions of any count may go without arguments.
            error("Incomplete function. Argument(s) missing.", lx.text);
            return nullptr;
        }
        n->ival2 = static_cast<int32_t>(n->args.size());
        if (!exprFunctionCountOk(number, n->ival2)) {
            error("The number of arguments doesn't match.", lx.text);
            return nullptr;
        }
        return n;
    }
};

}  // namespace

int expressionParse(const char *text, Expression *out, const ExprParseOptions &options,
                    std::vector<ExprParseError> *errors) {
    out->nodes.clear();
    out->root = nullptr;
    out->bodyOnly = 0;
    out->compiled = 0;
    out->variables.clear();
    out->hasVariables = 0;
    out->randoms.clear();
    out->randomSlots = 0;
    out->tables.clear();
    out->tableFrames = 0;
    out->text = text ? text : "";
    if (options.ownChapter >= 0) {
        out->ownChapter = options.ownChapter;
        out->ownElement = options.ownElement;
    } else {
        out->ownChapter = -1;
        out->ownElement = -1;
    }
    std::vector<ExprLexeme> tokens;
    std::string lexError;
    ExprParseError failure{};
    bool ok = false;
    if (!exprLex(out->text.c_str(), &tokens, &lexError)) {
        failure = ExprParseError{lexError, 0};
    } else {
        Parser p{out->text.c_str(), tokens, options, out, errors};
        ok = p.parseStatement() && !p.failed;
        failure = p.first;
        out->randomSlots = p.randomSlots;
    }
    if (!ok) {
        if (errors) errors->push_back(failure);
        if (!options.quiet) expressionReport(out->text.c_str(), failure);
        out->nodes.clear();
        out->root = nullptr;
        out->randoms.clear();
        return 0;
    }
    out->compiled = 1;
    if (options.checkOnly) {
        out->nodes.clear();
        out->root = nullptr;
        out->randoms.clear();
    }
    return 1;
}

void expressionReport(const char *text, const ExprParseError &error) {
    msgShow(error.message.c_str(), TOL_CLASS_ERROR);
    msgShowf(TOL_CLASS_ERROR, "  %s", text ? text : "");
    msgShowf(TOL_CLASS_ERROR, "  %*s^", error.position, "");
}
