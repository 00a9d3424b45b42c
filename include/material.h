// Materials and textures: the records of the `.mtr`, `.txt` and `.t3D`
// element files, which also stand inline in the nodes of a model file.
//
// The same reader serves both places: it takes a BinReader positioned at the
// record and the Prototype of the file being read (null when the file has no
// table), so a record read from a model is the same object as one read from
// its own file. A damaged record is kept as far as it was read; the reader's
// failure (r.failed, r.error) tells the caller where and why it stopped.
//
// Fields called keptNN are carried from the file and written back unchanged;
// NN is the token that holds them. Nothing in the viewer reads them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fileio.h"

// Record ids in the prototype table.
constexpr int PROTO_ID_MATERIAL = 13;
constexpr int PROTO_ID_TEXTURE2D = 14;
constexpr int PROTO_ID_TEXTURE3D = 15;

// A block of custom data: tag, flag, bytes. On disk: four tag characters and a
// 0, the flag as one byte, an i32 size and the bytes. Materials and textures
// carry them in a sized field, model nodes in tokens 22 and 0xFF1C; the record
// and its reader and writer are the same in all three places.
struct CustomBlock {
    std::string tag;            // "CUSA" to "CUSD", or "_" and the turned tag of an old custom element
    uint8_t flag = 0;           // kept
    std::vector<uint8_t> data;  // the block's bytes, in file order from 3.50009 on
};

// A reference to a custom shader, kept as read for the custom shader support.
struct CustomShader {
    std::string name;           // shader file name; empty for none
    std::vector<uint8_t> data;  // its parameters, uninterpreted
};

// A 2D texture (record id 14): a picture and how it maps on a model.
struct Texture2D {
    std::string pictureName;         // token 1: picture file, or element of the icon
    uint16_t sourceKind = 0;         // token 2: 0 and 1 a file, 2 the icon of an element
    uint16_t method = 1;             // token 3: mapping, 1 XY 2 XZ 3 YZ 4 UV 5 cylinder 6 sphere 7 8 reflection
    uint16_t swap = 0;               // token 4: 1 exchanges u and v
    float crop[4] = {0, 0, 0, 0};    // tokens 5 to 8: x min, x max, y min, y max, pixels
    uint16_t cropOn = 0;             // token 9: 1 applies the crop bounds
    uint16_t interpolate = 1;        // token 10: 1 linear filtering, 0 nearest
    float uScale = 1.0f;             // token 11; also the coverage of cylinder and sphere
    float vScale = 1.0f;             // token 12
    float uOffset = 0.0f;            // token 13
    float vOffset = 0.0f;            // token 14
    float effects[4] = {0, 0, 0, 0}; // tokens 15 to 18; token 19 is an old form of [2]
    uint32_t kept20 = 0;             // token 20, four bytes
    uint16_t kept21 = 0;             // token 21
    uint16_t tiles[2] = {1, 1};      // token 22: tile counts u, v
    uint16_t mirror[2] = {0, 0};     // token 23: mirror switches u, v
    uint16_t kept24[2] = {0, 0};     // token 24
    uint16_t kept25[2] = {0, 0};     // token 25
    uint16_t video = 0;              // token 26: 1 replaces the picture by live video
    uint16_t alpha = 0;              // token 27: 1 uses the picture's alpha
    uint16_t explicitUV = 0;         // token 28: 1 takes the UV of the surface as given
    uint32_t kept29 = 0;             // token 29, four bytes
    uint16_t kept30 = 0;             // token 30
    uint16_t kept31 = 0;             // token 31
    float boxSize[3] = {1, 1, 1};    // token 32: projection box size
    float boxCentre[3] = {0, 0, 0};  // token 33: projection box centre
    float sphereCentre[3] = {0, 0, 0};  // token 34: centre of cylinder and sphere
    uint16_t kept35 = 0;             // token 35
    CustomShader shader;             // token 36
    uint16_t kept37 = 0;             // token 37
    std::string sequenceName;        // token 50: picture sequence, empty for none
    uint16_t kept563[6] = {};        // tokens 563 to 568
    std::vector<CustomBlock> customBlocks;  // token 0xFF35
    // Set by curves only (relations 511 to 532), not on disk.
    float rotation[3] = {0, 0, 0};   // projection's turn about x, y, z, radians; gives matrix
    float factors[6] = {0, 0, 0, 0, 0, 0};  // renderer factors of 521 to 523 and 530 to 532,
                                     // carried for the renderer; the viewer reads none
    // Derived, not on disk.
    float matrix[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};  // projection's rotation, row by row
    uint32_t revision = 0;           // bumped whenever a value changes after the read; the draw
                                     // rebuilds what it made from the texture when it differs
    int32_t listId = 0;              // id of the earlier texture whose list it shares (one picture
                                     // read and defined once, by texturesMerge); 0: its own
};

// A 3D (solid) texture (record id 15).
struct Texture3D {
    std::string name;                // token 1
    uint16_t type = 0;               // token 2: kind of solid texture
    float scaling[3] = {1, 1, 1};    // token 3
    float rotation[3] = {0, 0, 0};   // token 4, degrees
    float translation[3] = {0, 0, 0};  // token 5
    float colours[5][3] = {};        // tokens 22 to 26
    float params[36] = {};           // f32 tokens 10 to 19, 21, 27 to 29, 31 to 35, by token
    std::vector<uint8_t> extra;      // token 0xFF24, sized block kept as read
};

// A material (record id 13). The defaults are those of the default material.
struct Material {
    std::string name = "default";    // token 1
    uint16_t shadingModel = 4;       // tokens 2, 536, 539: 1 constant, 2 3 no highlight, 4 5 highlight, 6 shadow
    float ambient[3] = {0.5f, 0.5f, 0.5f};   // token 3
    float diffuse[3] = {0.7f, 0.7f, 0.7f};   // token 4
    float specular[3] = {1, 1, 1};   // token 5
    float specularDecay = 50.0f;     // token 6
    float kept7 = 0, kept8 = 0;      // tokens 7, 8
    float transparencyColour[3] = {0, 0, 0};  // token 9
    float transparency = 0.0f;       // mean of transparencyColour, set on read
    float kept10 = 0, kept11 = 0, kept13 = 0;  // tokens 10, 11, 13
    uint16_t kept14 = 0;             // token 14
    uint32_t kept15 = 0;             // token 15, four bytes
    std::vector<Texture2D> textures; // token 16: local 2D textures in file order; the first is drawn
    int hasTexture3D = 0;            // 1 when token 17 gave an inline 3D texture
    Texture3D texture3D;             // token 17: the first inline one; later ones are dropped
    uint16_t kept18 = 0;             // token 18
    uint32_t kept19 = 0, kept20 = 0; // tokens 19, 20, four bytes each
    CustomShader shaders[3];         // tokens 21, 22, 23
    uint16_t newForm[2] = {0, 0};    // both 2 after shading model 7 in token 536 (stored as 1)
    uint16_t kept541 = 0;            // token 541
    std::vector<CustomBlock> customBlocks;  // token 0xFF19
    CustomShader sizedShader;        // token 0xFF1A
    uint16_t vertexColourMode = 1;   // token 540: 1 vertex colours unused unless the draw asks,
                                     // 3 added to the diffuse colour, any other value drawn as they are
    // Derived, not on disk.
    uint32_t revision = 0;           // bumped whenever a value changes after the read; the draw
                                     // recompiles the material's list when it differs
};

// Records at a reader's position, on the list of `proto` when it has one.
// Return 1 when the record was read whole, 0 when the reader failed; the
// record then holds what was read before the failure.
int materialRead(BinReader &r, const Prototype *proto, Material &out);
int texture2DRead(BinReader &r, const Prototype *proto, Texture2D &out);
int texture3DRead(BinReader &r, const Prototype *proto, Texture3D &out);
// Recomputes what a 2D texture derives from its values (the projection's
// rotation `matrix` from `rotation`); the reader ends with it, and so does
// every change by evaluation.
void texture2DDerive(Texture2D &t);
// Writers of the same records; 1 while the writer has not failed.
int materialWrite(BinWriter &w, const Prototype *proto, const Material &m);
int texture2DWrite(BinWriter &w, const Prototype *proto, const Texture2D &t);
int texture3DWrite(BinWriter &w, const Prototype *proto, const Texture3D &t);

// Adds the version 4.0 lists of records 13, 14 and 15 to a table, for every
// writer whose file carries these records.
void materialProtoAdd(Prototype &proto);

// The entries of a list of textures (a material's token 16 or 17, a model
// node's tokens 8 and 9): u16 count, then per entry a u16 is-reference and a
// reference string, which is dropped, or an inline record. Every inline
// record is appended; returns 1 if the whole list was read.
int texture2DListRead(BinReader &r, const Prototype *proto, std::vector<Texture2D> &out);
int texture3DListRead(BinReader &r, const Prototype *proto, std::vector<Texture3D> &out);
// Writes a list of inline records (no references).
int texture2DListWrite(BinWriter &w, const Prototype *proto, const std::vector<Texture2D> &list);
int texture3DListWrite(BinWriter &w, const Prototype *proto, const Texture3D *list, size_t count);

// One custom block: tag and 0, flag, i32 size, bytes. Tags of files before 3.5
// that are none of CUSA to CUSD are turned round and get a leading "_"; before
// 3.50009 the bytes are one big-endian item. The writer drops that "_", so the
// old custom element keeps its name in a file of this version.
int customBlockRead(BinReader &r, CustomBlock &out);
int customBlockWrite(BinWriter &w, const CustomBlock &b);
// A sized field of custom blocks (tokens 0xFF19, 0xFF35, 0xFF1C of a model
// node): i32 size, blocks.
int customBlocksReadSized(BinReader &r, std::vector<CustomBlock> &out);
int customBlocksWriteSized(BinWriter &w, const std::vector<CustomBlock> &blocks);
// A shader reference: its name as a string, then a sized block of parameters.
int customShaderRead(BinReader &r, CustomShader &out);
int customShaderWrite(BinWriter &w, const CustomShader &s);

// Stand-alone files. `path` is without suffix: ".mtr", ".txt" or ".t3D" is
// added. A read returns 1 for a whole record; 0 for a missing file, a file of
// another kind or tag, or a damaged one, with `error` (when not null) naming
// the file and what is wrong; a damaged record keeps what was read. `partial`
// (when not null) is set to 1 when a damaged record had begun to be read, so
// that `out` holds something of the file, and to 0 otherwise.
int materialFileRead(const char *path, Material &out, std::string *error, int *partial = nullptr);
int texture2DFileRead(const char *path, Texture2D &out, std::string *error, int *partial = nullptr);
int texture3DFileRead(const char *path, Texture3D &out, std::string *error, int *partial = nullptr);
// Header (with the element's id), "PROT" table, tag and record.
int materialFileWrite(const char *path, const Material &m, const char *comment);
int texture2DFileWrite(const char *path, const Texture2D &t, const char *comment);
int texture3DFileWrite(const char *path, const Texture3D &t, const char *comment);
