// Helpers shared by the material and texture records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "../binary/bin_internal.h"
#include "material.h"

// A string field as a std::string; empty when not a byte was left.
std::string matReadString(BinReader &r);
// The value of a sized field read as raw bytes, the i32 size included:
// 1 with `end` set to the offset where the field ends, 0 (reader failed) for
// a negative size or one beyond the file.
int matSizedStart(BinReader &r, int64_t &end, const char *what);
// After the contents of a sized field: passes over bytes the contents left
// unread, and fails the reader when they ran past the field.
int matSizedFinish(BinReader &r, int64_t end, const char *what);
// Writes the i32 size of a sized field whose contents are `bytes` long.
int matWriteSize(BinWriter &w, size_t bytes, const char *what);
// Bytes that customShaderWrite and customBlocksWriteSized put on disk.
size_t matShaderBytes(const CustomShader &s);
size_t customBlocksBytes(const std::vector<CustomBlock> &blocks);
// The version 4.0 lists of the texture records, added to a table.
void texture2DProtoAdd(Prototype &proto);
void texture3DProtoAdd(Prototype &proto);

// Writes a record whose fields follow its 4.0 list: each token of `list` (ended
// by BIN_TOKEN_END) and its value, written by `field(w, token)`.
template <typename FieldWriter>
int matWriteRecord(BinWriter &w, const Prototype *proto, int recordId, const uint16_t *list,
                   FieldWriter field) {
    TokenCursor cur;
    binWriteBegin(w, proto, recordId, cur);
    for (const uint16_t *t = list; *t != BIN_TOKEN_END && !w.failed; ++t) {
        binWriteToken(w, cur, *t);
        field(w, *t);
    }
    binWriteEnd(w, cur);
    return !w.failed;
}
