// The camera record: the working camera of each Scene Context is one of these,
// held as the data of an element of the CAMERAS chapter.
#pragma once

#include <cstdint>
#include <vector>

struct BinReader;
struct BinWriter;
struct CustomBlock;
struct CustomShader;

constexpr uint16_t CAMERA_KIND_WORKING = 2003;  // element kind of the working camera

struct Camera {
    uint16_t kind = 0;             // element kind; 2003 for the working camera
    uint16_t active = 1;           // 0: no navigation moves this camera
    float position[3] = {0.0f, 0.0f, 10.0f};  // the eye, world coordinates, y up
    float interest[3] = {0.0f, 0.0f, 0.0f};   // the point looked at
    float roll = 0.0f;             // about the view axis, radians
    float fieldOfView = 0.7854f;   // vertical angle, radians
    float upVector[4] = {0.0f, 0.0f, 0.0f, 1.0f};  // set by the fit
    float aspect = 720.0f / 486.0f;  // width over height of the view
    int32_t offsetLens = 0;        // non-zero: shifted film back, values below
    float lens[5] = {0, 0, 0, 0, 0};  // focal length, film width (filmWidth as read), film height, two shifts
    float focalLength = 50.0f;     // recomputed from filmWidth and fieldOfView by zoom
    float filmWidth = 36.0f;       // film back width
    float nearClip = 0.1f;         // near clipping distance
    float farClip = 1000.0f;       // far clipping distance
    // Evaluated state.
    float viewMatrix[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 10, 1}};
                                   // camera frame: rows side, up, back (it looks along -z), eye
    float planeDistance = 1.0f;    // projection plane distance
    float planeWidth = 0.828427f;  // projection plane width
    float planeHeight = 0.559188f; // projection plane height
    float fStop = 5.6f;            // depth of field: aperture
    float focusDistance = 10.0f;   // depth of field: distance in focus
    float nearFocus = 5.0f;        // depth of field: near limit
    float farFocus = 20.0f;        // depth of field: far limit
    float dofKept = 0.0f;          // depth of field value kept for the renderer
    float circleOfConfusion = 0.0f;  // largest circle of confusion
    int32_t dofMode = 0;           // depth of field: 0 off, 1 f-stop and focus, 2 near and far
    uint16_t visibility = 2;       // display value: 2 visible, 0 hidden
    // Carried from the .cam file.
    float rotationKept[2] = {0.0f, 0.0f};  // first two of the file's three rotation values; the third is roll
    uint16_t kept18 = 0;           // word kept for the renderer
    uint16_t linkWords[3] = {0, 0, 0};  // element link words; a file read sets 1, 0, 0
    std::vector<CustomBlock> *customBlocks = nullptr;  // new'd; null for none; cameraFreeData
};

// How the editing side shows a light, and whether it is selected.
struct LightDisplay {
    uint16_t colour = 0;             // display colour, by index
    uint16_t word = 0;               // display word
    uint16_t colours[2] = {0, 0};    // display colour, by two indices
    uint16_t selection = 0;          // selection state; 1 and 3: on the select list
};

// A light of the LIGHTS chapter: the fields its relations drive.
struct Light {
    uint16_t type = 0;                       // kind of light, from its file
    uint16_t on = 1;                         // 1 lights the scene
    uint16_t visibility = 2;                 // display value: 2 visible, 0 hidden
    float colour[3] = {1.0f, 1.0f, 1.0f};    // red, green, blue
    float position[3] = {0.0f, 0.0f, 0.0f};  // world coordinates
    float interest[3] = {0.0f, 0.0f, -1.0f}; // the point lit towards
    float coneAngle = 0.7854f;               // spot cone, radians
    float spreadAngle = 0.0f;                // spot spread, radians
    float factor = 1.0f;                     // intensity factor
    float attenuation[3] = {1.0f, 0.0f, 0.0f};  // constant, linear, quadratic
    float directionAngles[3] = {0.0f, 0.0f, 0.0f};  // Euler angles turning (0, 0, -1), radians
    float direction[3] = {0.0f, 0.0f, -1.0f};       // unit direction from those angles
    float extraColour[3] = {0.0f, 0.0f, 0.0f};      // colour of the extra term, at least 0
    float extraIntensity = 0.0f;             // intensity of the extra term, at least 0
    int32_t extraCount[2] = {0, 0};          // two counts of the extra term, at least 0
    float extraRatio = 1.0f;                 // ratio of the extra term, at most 1
    // Carried from the .lig file; fields named keptNN hold token NN for the
    // renderer and the editing side, nothing in the viewer reads them.
    char name[31] = {};                      // at most 30 characters of the file's name
    float falloff[2] = {10000.0f, 10000.0f}; // start and end distance
    uint16_t falloffOn = 0;                  // 0 when the start is 10000 (within 0.01)
    LightDisplay display;                    // made with the record by token 2
    uint16_t shadow = 0;                     // 1: casts shadows
    int32_t kept17[3] = {0, 0, 0};           // tokens 17, 18, 19, widened words
    float kept20[2] = {0.0f, 0.0f};          // tokens 20, 21
    int32_t kept23[2] = {0, 0};              // token 23, widened words
    char *mapName = nullptr;                 // shadow or map file of the linked block, malloc'd; null for none
    uint32_t linkedWords[2] = {0, 0};        // tokens 25, 26 of the linked block, four bytes each
    uint16_t linkedWord27 = 0;               // token 27 of the linked block
    uint32_t linkedWord28 = 0;               // token 28 of the linked block, four bytes
    CustomShader *shaders[2] = {nullptr, nullptr};  // tokens 29, 41: custom shader references, new'd; null for none
    uint16_t kept30 = 0;                     // low 16 bits of its four bytes
    int32_t areaShape = 0;                   // shape of an area light: 0 quad, 1 one value, 2 point and value
    uint32_t kept32 = 0, kept33 = 0;         // four bytes each
    float area[12] = {};                     // area values by areaShape: 4 corners; 1 value; a point, a value
    uint16_t kept35 = 0, kept39 = 0;         // low 16 bits of their four bytes
    float kept36[3] = {}, kept37[3] = {};    // three values each
    float matrix[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};  // row by row
    uint16_t flag40 = 0;                     // 1 when its four bytes were non-zero
    float photon[3] = {0.0f, 0.0f, 0.0f};    // three photon values
    float kept43 = 0.0f;                     // one value
    int32_t count44 = 0, count45 = 0;        // counts, four bytes each
    uint16_t flag46 = 0, flag47 = 0;         // flags
    std::vector<CustomBlock> *customBlocks = nullptr;  // new'd; null for none
};

// One key of a lattice: the cage's points in one state.
struct LatticeKey {
    uint16_t kind;              // kind word of the file
    uint16_t divisions[3];      // in x, y and z
    int32_t words[3];           // three words kept from the file
    int32_t pointCount;         // divisions multiplied
    float (*points)[3];         // malloc'd; pointCount points
    uint16_t *pointFlags;       // malloc'd; one per point, 0 after a read
    float vectors[3][3];        // the three vectors that stood before the key
};

// The keys of a .lat file, in file order; the key index is the position.
struct Lattice {
    int32_t keyCount;           // entries of keys
    LatticeKey *keys;           // malloc'd, grows by reallocation
};

// ---------------------------------------------------------------------------
// Camera, light and lattice files (.cam, .lig, .lat): the header, then tokens
// each followed by its value, ending with token 0; no prototype table.

// Reads a .cam file into `into`, which is the current camera: a file fills an
// existing record and makes none. Returns `into`; null for a file that cannot
// be opened or holds no camera, or when `into` is null ("CameraBinaryRead:
// cannot allocate camera, skipping."). A damaged file is reported once, naming
// it, and the camera keeps what was read before the damage.
Camera *cameraFileRead(const char *path, Camera *into);
// A new light, or null when the file cannot be opened, holds no light or makes
// no record (token 2). lightFree releases it.
Light *lightFileRead(const char *path);
// A new lattice with the file's keys, or null when the file cannot be opened
// or holds no lattice. latticeFree releases it.
Lattice *latticeFileLoad(const char *path);
// The tokens behind the header, for a reader of an open stream (after
// binReaderAttach and binReadHeader, which leave the stream open). cameraRead
// returns 1, or 0 for a null camera.
int cameraRead(BinReader &r, Camera *into);
Light *lightRead(BinReader &r);
Lattice *latticeRead(BinReader &r);

// Writers of the same files, every value in its plain form (kind 1, vectors
// for positions); `comment` null writes the default. 1 on success.
int cameraFileWrite(const char *path, const Camera &c, const char *comment);
int lightFileWrite(const char *path, const Light &l, const char *comment);
int latticeFileWrite(const char *path, const Lattice &l, const char *comment);
// The tokens of one record and the ending 0.
int cameraWrite(BinWriter &w, const Camera &c);
int lightWrite(BinWriter &w, const Light &l);
int latticeWrite(BinWriter &w, const Lattice &l);

// 1 when the light's selection state puts it on the select list (1 or 3).
int lightOnSelectList(const Light &l);

void cameraFreeData(Camera &c);  // the custom blocks; the record itself stays
void lightFree(Light *l);
void latticeFree(Lattice *l);

// Animatable values: a u16 kind, then for kind 1 the value (valueRead) or three
// (valueRead3); kind 2 keeps the field, as its value came from a curve of the
// old file form; any other kind is a token passed over by binSkip. vectorRead
// is three f32 without a kind. A null field drops the value. Each returns 1;
// r.failed tells of damage.
int valueRead(BinReader &r, float *field);
int valueRead3(BinReader &r, float *fields);
int vectorRead(BinReader &r, float *fields);
// Position block: forms one after the other, each a u16, then 1: a vector;
// 3: a path reference, put on the pending list for `owner` (skipped when owner
// is null); 2, 4, 5: the old curve form, which prints a line on standard
// output and ends the block; any other word ends the block and is consumed.
// The writers end a block with 0.
int positionRead(BinReader &r, float *field, void *owner, int32_t refKind);

// What a position block follows when it names a path.
enum PathRefKind : int32_t {
    PATH_REF_CAMERA_POSITION = 4,
    PATH_REF_CAMERA_INTEREST = 5,
    PATH_REF_LIGHT_POSITION = 6,
    PATH_REF_LIGHT_INTEREST = 7,
};

// A camera or light position that follows a path, named by its element. The
// readers cannot resolve it, as the path's element may not be loaded yet: each
// reference goes on one process-wide pending list, and the scene loader takes
// the list once the scene is read and links owner and path.
struct PathRef {
    PathRef *next;    // older reference
    void *owner;      // the Camera or Light whose point follows the path
    int32_t kind;     // PathRefKind
    uint16_t word;    // the word that stands before the name, kept for the loader
    char *pathName;   // malloc'd element name of the path
};

// The pending references, newest first; the list is empty afterwards.
PathRef *pathRefsTake();
void pathRefsFree(PathRef *list);
