// Helpers shared by the files of the expression language; not part of the
// public interface.
#pragma once

#include "expr.h"

// Argument kinds of a function's description list.
constexpr char EXPR_ARG_VALUE = 'v';  // evaluated before the call
constexpr char EXPR_ARG_NODE = 'n';   // passed as the unevaluated node (leaf kind 10 in the list)

// One argument record of a call.
struct ExprArg {
    double value;          // evaluated value (EXPR_ARG_VALUE)
    const ExprNode *node;  // the node itself
};

// What a function routine sees of the evaluation in progress.
struct ExprCall {
    Expression *expression;
    std::vector<std::vector<double>> *tables;
    int32_t frameIndex;
    int32_t frame;
    float time;
    int *status;
    const ExprEvalScene *scene;
};

using ExprRoutine = double (*)(ExprCall &call, int count, ExprArg *args);

// The description list of a function: one EXPR_ARG_* per argument place; the
// last one repeats for functions of any count.
const char *exprFunctionArgs(int number);
ExprRoutine exprFunctionRoutine(int number);
// Whether `count` arguments suit the function.
bool exprFunctionCountOk(int number, int count);

// Value of a parameter reference at the present state (degrees for angles),
// or 0 when unresolved.
double exprParamValue(const ExprParamRef &ref, const ExprEvalScene &scene);
// Evaluates a node to a number within a call.
double exprNodeNumber(ExprCall &call, const ExprNode *node);
// Element data of a reference; null when unresolved.
void *exprRefData(const ExprParamRef &ref, const ExprEvalScene &scene);
// A number cut to an integer, saturated at the ends of the range; NaN gives 0.
int32_t exprToInt(double v);
