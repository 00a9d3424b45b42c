// Prototype tables and the token loop of tagged records, on both sides, and
// the start of an element file (header, table, chunk tag).
#include <new>
#include <string>

#include "bin_internal.h"

Prototype *protoNew() { return new (std::nothrow) Prototype; }

void protoFree(Prototype *proto) { delete proto; }

int protoKnownId(int id) { return id == 3 || (id >= 5 && id < PROTO_ID_COUNT); }

int protoSet(Prototype &proto, int id, const uint16_t *tokens, size_t count) {
    if (!protoKnownId(id) || (count > 0 && !tokens)) return 0;
    std::vector<uint16_t> &list = proto.lists[id];
    list.assign(tokens, tokens + count);
    // A list always ends with 0, so that a token loop over it always ends.
    if (list.empty() || list.back() != BIN_TOKEN_END) list.push_back(BIN_TOKEN_END);
    return 1;
}

const uint16_t *protoList(const Prototype *proto, int id) {
    if (!proto || id < 0 || id >= PROTO_ID_COUNT || proto->lists[id].empty()) return nullptr;
    return proto->lists[id].data();
}

int protoRead(BinReader &r, Prototype &proto) {
    // Each row takes at least four bytes, so the loop ends with the file.
    for (;;) {
        uint16_t id = binReadU16(r);
        if (r.failed) return 0;
        if (id == 0) return 1;
        uint16_t count = binReadU16(r);
        if (!binCheckCount(r, count, 2)) return 0;
        std::vector<uint16_t> list(count);
        binReadU16s(r, list.data(), count);
        if (r.failed) return 0;
        if (!protoKnownId(id)) continue;  // a record this reader has no use for
        protoSet(proto, id, list.data(), list.size());
    }
}

int protoWrite(BinWriter &w, const Prototype &proto) {
    binWriteTag(w, "PROT");
    for (int id = 0; id < PROTO_ID_COUNT; ++id) {
        const std::vector<uint16_t> &list = proto.lists[id];
        if (list.empty()) continue;
        if (list.size() > UINT16_MAX) {
            std::string what = "prototype list of record " + std::to_string(id) + " is too long";
            return binWriteFail(w, what.c_str());
        }
        binWriteU16(w, static_cast<uint16_t>(id));
        binWriteU16(w, static_cast<uint16_t>(list.size()));
        binWrite(w, list.data(), sizeof list[0], list.size());
    }
    binWriteU16(w, 0);
    return !w.failed;
}

// ---------------------------------------------------------------------------
// Token loops

namespace {

void cursorStart(const Prototype *proto, int recordId, TokenCursor &cur) {
    cur = TokenCursor{};
    cur.recordId = recordId;
    cur.list = protoList(proto, recordId);
    if (cur.list) cur.count = proto->lists[recordId].size();
}

}  // namespace

uint16_t binFirstToken(BinReader &r, const Prototype *proto, int recordId, TokenCursor &cur) {
    cursorStart(proto, recordId, cur);
    return binNextToken(r, cur);
}

uint16_t binNextToken(BinReader &r, TokenCursor &cur) {
    if (!cur.list) return binReadU16(r);
    return cur.pos < cur.count ? cur.list[cur.pos++] : BIN_TOKEN_END;
}

void binWriteBegin(BinWriter &w, const Prototype *proto, int recordId, TokenCursor &cur) {
    (void)w;
    cursorStart(proto, recordId, cur);
}

int binWriteToken(BinWriter &w, TokenCursor &cur, uint16_t token) {
    if (!cur.list) return binWriteU16(w, token);
    // A value written out of list order would shift every later field for the
    // reader, so the writer stops here instead.
    if (token == BIN_TOKEN_END || cur.pos >= cur.count || cur.list[cur.pos] != token) {
        std::string what = "token " + std::to_string(token) + " is out of step with the list of record " +
                           std::to_string(cur.recordId);
        return binWriteFail(w, what.c_str());
    }
    ++cur.pos;
    return 1;
}

int binWriteEnd(BinWriter &w, TokenCursor &cur) {
    if (!cur.list) return binWriteU16(w, BIN_TOKEN_END);
    if (cur.pos + 1 != cur.count) {
        std::string what = "record " + std::to_string(cur.recordId) + " ends before its list";
        return binWriteFail(w, what.c_str());
    }
    ++cur.pos;
    return 1;
}

// ---------------------------------------------------------------------------
// Start of an element file

int32_t binReadFileStart(BinReader &r, Prototype &proto, char tag[5]) {
    tag[0] = '\0';
    int32_t id = binReadHeader(r, nullptr, nullptr);
    if (id < 0) return -1;
    if (!binReadTag(r, tag)) return -1;
    if (fourCC("PROT") == binLoad32(reinterpret_cast<const uint8_t *>(tag))) {
        if (!protoRead(r, proto) || !binReadTag(r, tag)) return -1;
    }
    return id;
}

int binWriteFileStart(BinWriter &w, uint32_t id, float version, const char *comment,
                      const Prototype *proto, const char *tag) {
    binWriteHeader(w, id, version, comment);
    if (proto) protoWrite(w, *proto);
    binWriteTag(w, tag);
    return !w.failed;
}
