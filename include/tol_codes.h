// Names of the TOL layer's status codes, made from the same rows that give
// their classes and texts, so a name and its text cannot drift apart.
#pragma once

#include <cstdint>

#include "tol_status_table.inc"

// TOL_ST_NO_ERROR = 0, TOL_ST_NULL_ARGUMENT = 16, ... one name per row. Plain
// constants of the status type, so they mix with statuses in any expression.
#define TOL_STATUS_ROW(code, cls, name, fmt) constexpr int32_t TOL_ST_##name = code;
TOL_STATUS_ROWS
#undef TOL_STATUS_ROW
