// Expressions in a scene: the chapter's files of named texts, their members
// as elements, compilation and connection after a load, and the handler of
// relation 20010 that evaluates them during the update.
#include <cstdio>
#include <cstring>
#include <set>
#include <tuple>

#include "../updatelist_internal.h"
#include "expr_internal.h"
#include "tol_status.h"

namespace {

constexpr const char *kFileMagic = "EXPR";
constexpr int kFileVersion = 1;

// Data of an expressions file's element: the texts of the file and the
// compiled expressions, which the member elements point at.
struct ExprFileData {
    std::vector<ExprFileEntry> entries;                   // in file order
    std::vector<std::unique_ptr<Expression>> expressions;  // one per entry once loaded
};

bool nameChar(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }

int readFile(Dictionary *dict, int index, const char *path) {
    auto data = std::make_unique<ExprFileData>();
    if (!exprFileRead(path, &data->entries)) return 0;
    Element *e = elemGet(dict, CHP_EXPRESSIONS, index);
    if (!e) return 0;
    e->data = data.release();
    return 1;
}

void freeData(Element &e) {
    // Members point into their file's data; the file frees it.
    if (e.lev == 0) delete static_cast<ExprFileData *>(e.data);
}

// Every parameter leaf under `node`, variables' trees included.
void collectRefs(const ExprNode *node, std::vector<const ExprParamRef *> *refs, int depth) {
    if (!node || depth > 2) return;
    if (node->ref) refs->push_back(node->ref.get());
    if (node->isLeaf && node->op == EXPR_LEAF_VARIABLE && node->variable) {
        const Expression *v = node->variable;
        collectRefs(v->bodyOnly ? v->root : (v->root ? v->root->right : nullptr), refs, depth + 1);
    }
    collectRefs(node->left, refs, depth);
    collectRefs(node->right, refs, depth);
    for (const ExprNode *a : node->args) collectRefs(a, refs, depth);
}

// The row of relation 20010 that joins an element of `chapter` in `group`
// to the expressions chapter; 0 for none.
int expressionRow(int chapter, int group) {
    const int rows = relRowCount(&g_relationDict, REL_EXPRESSION);
    for (int n = 1; n <= rows; ++n) {
        int16_t from = 0, to = 0, grpFrom = 0;
        if (!relRowInstance(&g_relationDict, REL_EXPRESSION, n, &from, &to, &grpFrom, nullptr, nullptr, nullptr))
            break;
        if (to == CHP_EXPRESSIONS && (from == REL_ANY_CHAPTER || from == chapter) && grpFrom == group) return n;
    }
    return 0;
}

void disconnect(Dictionary *dict, Expression *x, const ExprParamRef *target) {
    if (x->serial < 0 || !target) return;
    relRemove(dict, target->chapter, target->element, 1, REL_EXPRESSION, -1, -1, x->serial);
    x->serial = -1;
}

void nodeText(const ExprNode *n, int depth, std::string *out) {
    std::string line(static_cast<size_t>(depth) * 2, ' ');
    char buf[256];
    if (!n) {
        out->append(line + "(none)\n");
        return;
    }
    if (!n->isLeaf) {
        snprintf(buf, sizeof buf, "op %d %s\n", n->op, exprOpName(n->op));
        out->append(line + buf);
        if (n->left) nodeText(n->left, depth + 1, out);
        nodeText(n->right, depth + 1, out);
        return;
    }
    snprintf(buf, sizeof buf, "leaf %d %s", n->op, exprLeafName(n->op));
    line += buf;
    switch (n->op) {
    case EXPR_LEAF_INT:
    case EXPR_LEAF_RELID: snprintf(buf, sizeof buf, " %d", n->ival); line += buf; break;
    case EXPR_LEAF_REAL:
    case EXPR_LEAF_PI:
    case EXPR_LEAF_E: snprintf(buf, sizeof buf, " %.9g", n->rval); line += buf; break;
    case EXPR_LEAF_STRING: line += " \"" + n->text + "\""; break;
    case EXPR_LEAF_ENUM: snprintf(buf, sizeof buf, " %d %d", n->ival, n->ival2); line += buf; break;
    case EXPR_LEAF_VARIABLE: line += " " + n->text; break;
    case EXPR_LEAF_RANDOM:
        snprintf(buf, sizeof buf, " seed %d %s %.9g width %.9g slot %d", n->random->seed,
                 n->random->isInt ? "int" : "float", n->random->lower, n->random->width, n->random->slot);
        line += buf;
        break;
    case EXPR_LEAF_PARAM:
    case EXPR_LEAF_CUSTOM_PARAM: {
        const ExprParamRef &r = *n->ref;
        ParamInfo info{};
        paramInfo(r.param, &info);
        snprintf(buf, sizeof buf, " %s.%s chapter %d element %d type %d sub %d axis %c", r.name.c_str(),
                 info.name ? info.name : "?", r.chapter, r.element, r.curveType, r.subId, r.axis);
        line += buf;
        break;
    }
    case EXPR_LEAF_CHANNEL:
        snprintf(buf, sizeof buf, " %s.%s driver %d dof %d", n->chan->driverName.c_str(),
                 n->chan->dofName.c_str(), n->chan->driver, n->chan->dof);
        line += buf;
        break;
    case EXPR_LEAF_FUNCTION:
        snprintf(buf, sizeof buf, " %s args %d", exprFunctionInfo(n->ival)->keyword, n->ival2);
        line += buf;
        break;
    }
    out->append(line + "\n");
    for (const ExprNode *a : n->args) nodeText(a, depth + 1, out);
}

}  // namespace

const char *exprOpName(int op) {
    switch (op) {
#define X(name, value, text) \
    case value: return text;
        EXPR_OPS
#undef X
    }
    return "?";
}

const char *exprLeafName(int kind) {
    switch (kind) {
#define X(name, value) \
    case value: return #name;
        EXPR_LEAVES
#undef X
    }
    return "?";
}

std::string expressionTreeText(const ExprNode *node) {
    std::string out;
    nodeText(node, 0, &out);
    return out;
}

// ---------------------------------------------------------------------------
// Files

int exprFileRead(const char *path, std::vector<ExprFileEntry> *entries) {
    FILE *f = path ? fopen(path, "r") : nullptr;
    if (!f) {
        fprintf(stderr, "ERROR: Cannot open file %s\n", path ? path : "(null)");
        return 0;
    }
    entries->clear();
    char line[EXPR_INPUT_LIMIT + 256];
    int number = 0;
    int version = 0;
    char magic[8] = {};
    if (!fgets(line, sizeof line, f) || sscanf(line, "%7s %d", magic, &version) != 2 ||
        strcmp(magic, kFileMagic) != 0 || version < 1 || version > kFileVersion) {
        fprintf(stderr, "%s:1: not an expressions file (\"%s %d\" expected)\n", path, kFileMagic, kFileVersion);
        fclose(f);
        return 0;
    }
    number = 1;
    while (fgets(line, sizeof line, f)) {
        ++number;
        size_t n = strlen(line);
        if (n == sizeof line - 1 && line[n - 1] != '\n') {
            fprintf(stderr, "%s:%d: line too long, skipped\n", path, number);
            int c;
            while ((c = fgetc(f)) != EOF && c != '\n') {
            }
            continue;
        }
        while (n > 0 && isspace(static_cast<unsigned char>(line[n - 1]))) line[--n] = '\0';
        const char *p = line;
        while (*p && isspace(static_cast<unsigned char>(*p))) ++p;
        if (*p == '\0' || *p == '#') continue;
        const char *nameEnd = p;
        while (nameChar(*nameEnd)) ++nameEnd;
        const char *text = nameEnd;
        while (*text == ' ' || *text == '\t') ++text;
        if (nameEnd == p || text == nameEnd || *text == '\0') {
            fprintf(stderr, "%s:%d: a name and an expression expected, line skipped\n", path, number);
            continue;
        }
        ExprFileEntry entry{std::string(p, nameEnd), std::string(text)};
        bool twin = false;
        for (const ExprFileEntry &e : *entries) twin = twin || e.name == entry.name;
        if (twin) {
            fprintf(stderr, "%s:%d: expression %s named twice, line skipped\n", path, number, entry.name.c_str());
            continue;
        }
        entries->push_back(entry);
    }
    fclose(f);
    return 1;
}

int exprFileWrite(const char *path, const std::vector<ExprFileEntry> &entries) {
    FILE *f = path ? fopen(path, "w") : nullptr;
    if (!f) return 0;
    bool ok = fprintf(f, "%s %d\n", kFileMagic, kFileVersion) > 0;
    for (const ExprFileEntry &e : entries) {
        if (e.name.empty() || e.text.find('\n') != std::string::npos) continue;
        ok = ok && fprintf(f, "%s %s\n", e.name.c_str(), e.text.c_str()) > 0;
    }
    return fclose(f) == 0 && ok ? 1 : 0;
}

// ---------------------------------------------------------------------------
// Connection

Expression *expressionOf(Dictionary *dict, int32_t exprIndex) {
    Element *e = elemGet(dict, CHP_EXPRESSIONS, exprIndex);
    if (!e || e->deleted != ELEM_LIVE || e->lev == 0) return nullptr;
    return static_cast<Expression *>(e->data);
}

int expressionConnect(Dictionary *dict, int32_t exprIndex, Expression *x) {
    if (!dict || !x) return 0;
    x->exprIndex = exprIndex;
    const ExprNode *targetNode = x->root && !x->bodyOnly ? x->root->left : nullptr;
    const ExprParamRef *target = targetNode ? targetNode->ref.get() : nullptr;
    disconnect(dict, x, target);
    if (!x->compiled || !target || target->chapter < 0 || target->element < 0 || target->param < 0) return 0;
    ParamInfo info{};
    paramInfo(target->param, &info);
    const int instance = expressionRow(target->chapter, info.group);
    int16_t grpFrom = 0, rank = 0;
    if (!instance || !relRowInstance(&g_relationDict, REL_EXPRESSION, instance, nullptr, nullptr, &grpFrom,
                                     nullptr, &rank, nullptr))
        return 0;
    RelData *data = relDataNew(REL_EXPRESSION);
    if (data && data->words) {
        data->words[0] = strdup(info.name);
        data->present |= 1;
    }
    const int32_t serial = relNewSerial();
    if (!relAddExpression(dict, &g_relationDict, target->chapter, target->element, CHP_EXPRESSIONS, exprIndex,
                          instance, serial, data)) {
        relDataFree(REL_EXPRESSION, data);
        return 0;
    }
    x->serial = serial;
    // Every element it reads joins the run, in the group that sets the value read.
    std::vector<const ExprParamRef *> refs;
    collectRefs(x->root->right, &refs, 0);
    std::set<std::tuple<int, int32_t>> seen;
    for (const ExprParamRef *r : refs) {
        if (r->chapter < 0 || r->element < 0 || r->param < 0) continue;
        if (!seen.insert({r->chapter, r->element}).second) continue;
        ParamInfo from{};
        paramInfo(r->param, &from);
        relAddFull(dict, &g_relationDict, target->chapter, r->chapter, grpFrom, static_cast<int>(from.group),
                   target->element, r->element, REL_EXPRESSION, serial, rank, nullptr);
    }
    dict->update.dirty = 1;
    dict->update2.dirty = 1;
    // The sort is the cycle test.
    UpdateList probe;
    const int ok = updatelistBuild(dict, &probe, 1, 0);
    updatelistClear(&probe);
    if (!ok) {
        msgShow("This expression would generate a cycle in dependencies. Please modify it.", TOL_CLASS_ERROR);
        disconnect(dict, x, target);
        dict->update.dirty = 1;
        return 0;
    }
    return 1;
}

int expressionsLoadScene(Dictionary *dict) {
    Chapter *chapter = dict ? dictChapter(dict, CHP_EXPRESSIONS) : nullptr;
    if (!chapter) return 0;
    int connected = 0;
    const int files = chapter->elementCount;  // members are added behind
    for (int i = 0; i < files; ++i) {
        Element *file = elemGet(dict, CHP_EXPRESSIONS, i);
        if (!file || file->deleted != ELEM_LIVE || file->lev != 0 || !file->data || !file->loaded ||
            file->isNew != 1)
            continue;
        auto *data = static_cast<ExprFileData *>(file->data);
        if (!data->expressions.empty()) continue;  // made by an earlier load
        const int owner = file->owner;
        const std::string subdir = file->name ? file->name->subdir : std::string();
        std::vector<int32_t> members;
        for (const ExprFileEntry &entry : data->entries) {
            auto x = std::make_unique<Expression>();
            x->name = entry.name;
            x->text = entry.text;
            // A member the scene names already is taken as it stands.
            int index = elemFindByName(dict, CHP_EXPRESSIONS, i, nullptr, entry.name.c_str(), -1, -1, 0);
            if (index >= 0 && elemGet(dict, CHP_EXPRESSIONS, index)->lev == 0) index = -1;
            if (index < 0) {
                ElemName *name = elemNameParse(entry.name.c_str(), nullptr, 0);
                if (!name) continue;
                name->subdir = subdir;
                index = elemAdd(dict, CHP_EXPRESSIONS, name, nullptr, nullptr, owner, -1);
                if (index < 0) continue;
            }
            Element *member = elemGet(dict, CHP_EXPRESSIONS, index);
            member->lev = 1;
            member->root = i;
            member->loaded = 1;
            member->isNew = 1;
            member->data = x.get();
            x->exprIndex = index;
            data->expressions.push_back(std::move(x));
            members.push_back(index);
        }
        std::vector<Expression *> all;
        for (auto &x : data->expressions) all.push_back(x.get());
        // Variables may stand later in the file: a second pass takes the
        // ones the first could not compile, and reports them.
        for (int pass = 0; pass < 2; ++pass)
            for (Expression *x : all) {
                if (x->compiled) continue;
                std::vector<Expression *> others;
                for (Expression *o : all)
                    if (o != x) others.push_back(o);
                ExprParseOptions options;
                options.dict = dict;
                options.variables = &others;
                options.quiet = pass == 0;
                if (!expressionParse(x->text.c_str(), x, options, nullptr) && pass == 1)
                    msgShowf(TOL_CLASS_ERROR, "Expression invalide(%s)!", x->name.c_str());
            }
        for (size_t k = 0; k < all.size(); ++k)
            if (all[k]->compiled && expressionConnect(dict, members[k], all[k])) ++connected;
    }
    return connected;
}

// ---------------------------------------------------------------------------
// Evaluation in the update

void expressionEvalRecord(UpdateRecord *record, float time) {
    if (!record || !record->data || record->sourceCount < 1) return;
    // The entries of one run stand in chapter order: the expression's own is
    // the one of the expressions chapter, the others are what it reads.
    const UpdateSource *own = nullptr;
    for (int i = 0; i < record->sourceCount && !own; ++i)
        if (record->sources[i].chapter == CHP_EXPRESSIONS) own = &record->sources[i];
    if (!own || !own->active || !own->data) return;
    if (own->fcurve && fcurveStepValue(own->fcurve, time, 1, 0) < 1) return;
    Expression *x = static_cast<Expression *>(own->data);
    int status = 0;
    expressionRun(x, exprEvalSceneOf(walkState().dict), time, &status);
    if (status) msgShow(exprStatusMessage(status), TOL_CLASS_WARNING);
}

void exprInstall() {
    g_evalHooks.expressionRecord = expressionEvalRecord;
    g_sceneLoadHooks.connectExpressions = expressionsLoadScene;
    sceneChapterReaderSet(CHP_EXPRESSIONS, readFile, freeData);
}
