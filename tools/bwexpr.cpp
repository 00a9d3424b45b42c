// bwexpr: an expression's tree and value.
//
//   bwexpr [-R RSRC] 'EXPR' [DATABASE SCENE FRAME]
//
// Alone, the text is parsed without a scene (object parameters stand by
// name and read 0) and evaluated at frame 1 of the default play range. With
// a database, a scene and a frame, the scene is loaded through the same
// layer as the viewer, evaluated at that frame, and the expression is
// evaluated against it (the scene's own expressions serve as variables).
// Exit 0, 1 on a parse or evaluation error, 2 on a usage error.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "dictionary.h"
#include "expr.h"
#include "tol.h"
#include "tol_status.h"

namespace {

void usage(const char *program) {
    fprintf(stderr, "Usage: %s [-R RSRC] 'EXPR' [DATABASE SCENE FRAME]\n", program);
}

void printValue(const ExprValue &v) {
    switch (v.tag) {
    case EXPR_RESULT_FLOAT: printf("value %.9g (tag 1 float)\n", v.fval); break;
    case EXPR_RESULT_INT: printf("value %d (tag 4 integer)\n", v.ival); break;
    case EXPR_RESULT_ENUM: printf("value %d %d (tag 3 enum)\n", v.ival, v.ival2); break;
    case EXPR_RESULT_STRING: printf("value \"%s\" (tag 5 string)\n", v.sval ? v.sval : ""); break;
    default: printf("value ? (tag %d)\n", v.tag); break;
    }
}

// Loads the scene and evaluates it at the frame; null on failure (reported).
Dictionary *loadScene(const std::string &rsrc, const char *database, const char *sceneName, int frame,
                      float *time) {
    if (rsrc.empty()) {
        fprintf(stderr, "bwexpr: no resource directory: give -R RSRC or set BW_RSRC\n");
        return nullptr;
    }
    if (TOL_Init(rsrc.c_str(), 0, TOL_SDK_VERSION) != 0) return nullptr;
    TOL_Database db = TOL_toolDatabase("bwexpr", database);
    if (db == 0) return nullptr;
    static TOL_Scene scene;
    if (TOL_sceneCreate(&scene) != 0 || TOL_sceneSetCurrent(&scene) != 0) return nullptr;
    if (TOL_sceneLoad(&db, sceneName, &scene) != 0) {
        fprintf(stderr, "bwexpr: cannot load scene %s\n", sceneName);
        return nullptr;
    }
    if (TOL_updatelistGet(&scene) != 0) return nullptr;
    const TOL_PlayCtrl *play = tol_sidPlayCtrl(&scene);
    const float rate = play && play->framesPerSecond > 0 ? play->framesPerSecond : 30.0f;
    *time = static_cast<float>(frame) / rate;
    TOL_updatelistEvalScene(&scene, *time);
    return dictGet(static_cast<int>(scene.dict));
}

}  // namespace

int main(int argc, char *argv[]) {
    std::string rsrc = getenv("BW_RSRC") ? getenv("BW_RSRC") : "";
    std::vector<const char *> words;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-R") == 0 && i + 1 < argc)
            rsrc = argv[++i];
        else if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
            usage(argv[0]);
            return 2;
        } else
            words.push_back(argv[i]);
    }
    if (words.size() != 1 && words.size() != 4) {
        usage(argv[0]);
        return 2;
    }
    int frame = 1;
    float time = 0.0f;
    Dictionary *dict = nullptr;
    if (words.size() == 4) {
        char *end = nullptr;
        frame = static_cast<int>(strtol(words[3], &end, 10));
        if (!end || *end) {
            fprintf(stderr, "bwexpr: FRAME must be an integer, not %s\n", words[3]);
            return 2;
        }
        dict = loadScene(rsrc, words[1], words[2], frame, &time);
        if (!dict) return 1;
    } else {
        noInterface = 1;
        time = static_cast<float>(frame) / 30.0f;
    }
    // The scene's expressions are the variables.
    std::vector<Expression *> variables;
    if (Chapter *chapter = dict ? dictChapter(dict, CHP_EXPRESSIONS) : nullptr)
        for (int i = 0; i < chapter->elementCount; ++i)
            if (Expression *x = expressionOf(dict, i)) variables.push_back(x);
    Expression x;
    ExprParseOptions options;
    options.dict = dict;
    options.variables = &variables;
    if (!expressionParse(words[0], &x, options, nullptr)) return 1;
    fputs(expressionTreeText(x.root).c_str(), stdout);
    ExprEvalScene scene = dict ? exprEvalSceneOf(dict) : ExprEvalScene{nullptr, 1, 100, 30.0f};
    int status = 0;
    ExprValue value = expressionRun(&x, scene, time, &status);
    printValue(value);
    if (status) {
        fprintf(stderr, "%s\n", exprStatusMessage(status));
        return 1;
    }
    return 0;
}
