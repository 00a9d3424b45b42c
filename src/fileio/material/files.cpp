// The stand-alone material and texture files: header with the element's id,
// "PROT" table, chunk tag, one record.
#include <string>

#include "mat_internal.h"

namespace {

struct FileKind {
    uint32_t id;         // file id of the header
    const char *tag;     // chunk tag behind the table
    const char *suffix;  // added to the path
    const char *what;    // in messages
};

constexpr FileKind materialKind = {BIN_ID_MATERIAL, "MTRL", ".mtr", "material"};
constexpr FileKind texture2DKind = {BIN_ID_TEXTURE2D, "TXMP", ".txt", "2D texture"};
constexpr FileKind texture3DKind = {BIN_ID_TEXTURE3D, "TX3D", ".t3D", "3D texture"};

// Opens the file and reads up to its record. 1 with the reader at the record;
// 0 with `error` set, the reader closed.
int openElement(const FileKind &kind, const char *path, BinReader &r, Prototype &proto,
                std::string &error) {
    std::string name = std::string(path ? path : "") + kind.suffix;
    if (!binReaderOpen(r, name.c_str())) {
        error = r.error;
        return 0;
    }
    char tag[5];
    int32_t id = binReadFileStart(r, proto, tag);
    if (id < 0)
        error = r.failed ? r.error : name + " is not a binary element file";
    else if (static_cast<uint32_t>(id) != kind.id)
        error = name + " is not a " + kind.what + " file";
    else if (std::string(tag) != kind.tag)
        error = name + " has the chunk tag \"" + tag + "\" instead of \"" + kind.tag + "\"";
    else
        return 1;
    binReaderClose(r);
    return 0;
}

template <typename T, typename Read>
int fileRead(const FileKind &kind, const char *path, T &out, std::string *error, int *partial,
             Read read) {
    if (partial) *partial = 0;
    BinReader r;
    Prototype proto;
    std::string text;
    if (!openElement(kind, path, r, proto, text)) {
        if (error) *error = text;
        return 0;
    }
    const int64_t start = r.pos;
    int ok = read(r, &proto, out);
    if (!ok && error) *error = r.error;
    // A record cut short keeps what stood before the damage.
    if (!ok && partial) *partial = r.pos > start ? 1 : 0;
    binReaderClose(r);
    return ok;
}

template <typename T, typename Write>
int fileWrite(const FileKind &kind, const char *path, const T &record, const char *comment,
              Write write) {
    std::string name = std::string(path ? path : "") + kind.suffix;
    BinWriter w;
    if (!binWriterOpen(w, name.c_str())) return 0;
    Prototype proto;
    materialProtoAdd(proto);
    binWriteFileStart(w, kind.id, BIN_VERSION, comment, &proto, kind.tag);
    write(w, &proto, record);
    return binWriterClose(w);
}

}  // namespace

int materialFileRead(const char *path, Material &out, std::string *error, int *partial) {
    return fileRead(materialKind, path, out, error, partial, materialRead);
}

int texture2DFileRead(const char *path, Texture2D &out, std::string *error, int *partial) {
    return fileRead(texture2DKind, path, out, error, partial, texture2DRead);
}

int texture3DFileRead(const char *path, Texture3D &out, std::string *error, int *partial) {
    return fileRead(texture3DKind, path, out, error, partial, texture3DRead);
}

int materialFileWrite(const char *path, const Material &m, const char *comment) {
    return fileWrite(materialKind, path, m, comment, materialWrite);
}

int texture2DFileWrite(const char *path, const Texture2D &t, const char *comment) {
    return fileWrite(texture2DKind, path, t, comment, texture2DWrite);
}

int texture3DFileWrite(const char *path, const Texture3D &t, const char *comment) {
    return fileWrite(texture3DKind, path, t, comment, texture3DWrite);
}
