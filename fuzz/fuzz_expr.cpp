// Fuzz target: the lexer and parser of expressions, and the evaluation of
// every text that parses, without a scene (object parameters read 0).
#include <cstdint>
#include <string>

#include "expr.h"
#include "tol.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    tol_setMinimumClass(TOL_CLASS_MODE + 1);  // bad texts are the normal case here
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);  // cut at the first NUL
    Expression x;
    ExprParseOptions options;
    options.quiet = 1;
    if (!expressionParse(text.c_str(), &x, options, nullptr)) return 0;
    const ExprEvalScene scene{nullptr, 1, 50, 30.0f};
    int status = 0;
    expressionRun(&x, scene, 0.5f, &status);
    return 0;
}
