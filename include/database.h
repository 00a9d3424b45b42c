// The database subsystem: the table of known databases, the token reader shared
// by every ascii resource file, the chapter table and the chapter scan.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tol_status.h"

constexpr int BW_TOKEN_MAX = 1024;  // bytes of one token, terminator included
constexpr int BW_PATH_MAX = 1024;   // bytes of one path, terminator included

// ---------------------------------------------------------------------------
// Token reader

// How the last token ended.
enum TokenEnd {
    TOKEN_END_DELIMITER = 0,  // blank, line feed or ';' (the ';' is pushed back)
    TOKEN_END_EOF = 1,        // end of the stream
    TOKEN_END_BAD = 2,        // a character below 1 or of 255 and above
};

extern char g_token[BW_TOKEN_MAX];  // the shared token buffer; the next read overwrites it
extern int g_tokenEnd;              // TokenEnd of the last read
extern int g_tokenTruncated;        // 1 when the last token was longer than the buffer

int readToken(FILE *stream);                          // 1 if a token was read, 0 at the end
int readTokenUntil(FILE *stream, int delimiter);      // `delimiter` in place of ';'
int skipToToken(FILE *stream, const char *wanted, int delimiter);  // non-zero if found

// ---------------------------------------------------------------------------
// The chapter table: ids are indices, the dictionary makes its chapters in this order.

enum ChapterKind {
    CHAPTER_MEMORY = 0,   // in memory only, no directory
    CHAPTER_FILES = 1,    // a directory of element files
    CHAPTER_OUTSIDE = 2,  // files outside any database, by full path
};

struct ChapterRow {
    int id;               // chapter id
    const char *dir;      // directory name
    const char *suffix;   // default file suffix, null for none
    uint32_t magic;       // first four bytes of its files, big-endian; 0 for none
    int kind;             // ChapterKind
};

constexpr int CHAPTER_COUNT = 36;
extern const ChapterRow g_chapterTable[CHAPTER_COUNT];

// clang-format off
// The chapter table: id, directory (also the name CHP_<dir>), default suffix
// (nullptr for none), magic word ("" for none), ChapterKind without its prefix.
#define BW_CHAPTER_ROWS \
    CHAPTER_ROW(0, SCENES, "dsc", "SDSC", FILES) \
    CHAPTER_ROW(1, ANIMATION, "ani", "SANI", FILES) \
    CHAPTER_ROW(2, CAMERAS, "cam", "SCAM", FILES) \
    CHAPTER_ROW(3, CLUSTERS, "cls", "CLUS", FILES) \
    CHAPTER_ROW(4, PICTURES, "pic", "", FILES) \
    CHAPTER_ROW(5, LATTICES, "lat", "SLAT", FILES) \
    CHAPTER_ROW(6, LIGHTS, "lig", "SLIG", FILES) \
    CHAPTER_ROW(7, MATERIALS, "mtr", "SMAT", FILES) \
    CHAPTER_ROW(8, MODELS, "hrc", "", FILES) \
    CHAPTER_ROW(9, NSELECTIONS, nullptr, "", MEMORY) \
    CHAPTER_ROW(10, PALETTES, "pal", "", FILES) \
    CHAPTER_ROW(11, RENDER_PICTURES, "pic", "", FILES) \
    CHAPTER_ROW(12, SETUP_BRAK, "sts", "SSET", FILES) \
    CHAPTER_ROW(13, SETUP_CHANNELS, "chn", "SCHN", FILES) \
    CHAPTER_ROW(14, SETUP_FLOCK, "flk", "SFLK", FILES) \
    CHAPTER_ROW(15, SHAPES, "shp", "", FILES) \
    CHAPTER_ROW(16, STRUCT_KEYS, "key", "SKEY", FILES) \
    CHAPTER_ROW(17, TEXTURES2D, "txt", "ST2D", FILES) \
    CHAPTER_ROW(18, TEXTURES3D, "t3D", "ST3D", FILES) \
    CHAPTER_ROW(19, WAVES, "wav", "SWAV", FILES) \
    CHAPTER_ROW(20, EXPRESSIONS, "exp", "", FILES) \
    CHAPTER_ROW(21, MATERIAL_SHADERS, "shd", "SHAT", FILES) \
    CHAPTER_ROW(22, SHADOW_SHADERS, "shd", "SHAD", FILES) \
    CHAPTER_ROW(23, VOLUME_SHADERS, "shd", "SHVL", FILES) \
    CHAPTER_ROW(24, TEXTURE2D_SHADERS, "shd", "SHT2", FILES) \
    CHAPTER_ROW(25, TEXTURE3D_SHADERS, "shd", "SHT3", FILES) \
    CHAPTER_ROW(26, LIGHT_SHADERS, "shd", "SHIG", FILES) \
    CHAPTER_ROW(27, CAMERA_SHADERS, "shd", "SHAM", FILES) \
    CHAPTER_ROW(28, OUTPUT_SHADERS, "shd", "SHUT", FILES) \
    CHAPTER_ROW(29, ENVIRON_SHADERS, "shd", "SHNV", FILES) \
    CHAPTER_ROW(30, CHANNEL_DRIVERS, nullptr, "", MEMORY) \
    CHAPTER_ROW(31, OUTSIDE_DB_FILES, "all", "", OUTSIDE) \
    CHAPTER_ROW(32, SPREADSHEET_SETUP, "spd", "", FILES) \
    CHAPTER_ROW(33, AUDIO, "wav", "", FILES) \
    CHAPTER_ROW(34, MATERIAL_PHOTON_SHADERS, "shd", "SHAP", FILES) \
    CHAPTER_ROW(35, LIGHT_PHOTON_SHADERS, "shd", "SHIP", FILES)
// clang-format on

enum ChapterId {
#define CHAPTER_ROW(id, dir, suffix, magicText, kind) CHP_##dir = id,
    BW_CHAPTER_ROWS
#undef CHAPTER_ROW
};

// Id of a chapter directory name, -1 if unknown. Exact case, except that
// PICTURES and RENDER_PICTURES compare case-insensitively.
int chapterFind(const char *name);
// Id of the first chapter with this suffix (case-insensitive), -1 if none.
int chapterFindBySuffix(const char *suffix);

// ---------------------------------------------------------------------------
// Records

struct ChapterInfo {
    std::string name;     // the directory name
    std::string suffix;   // file suffix of the chapter; empty for none
    std::string browser;  // BROWSER value, kept for the database browser
    int versions = 4;     // versions of an element the chapter keeps; at least 1
};

enum DatabaseType {
    DB_TYPE_ORDINARY = 1,
    DB_TYPE_SHADERLIB = 2,
};

struct Database {
    std::vector<ChapterInfo> chapters;  // filled by the chapter scan, sorted by name
    std::string name;                   // unique in the table
    std::string path;                   // directory; backslashes turned into '/'
    std::string chapterName;            // chapter selected on this database; empty for none
    std::string chapterPath;            // path + "/" + chapterName + "/"
    uint16_t valid = 1;                 // cleared when the chapter scan finds nothing
    uint16_t system = 0;                // from DatabaseSys.rsrc or MASTER 1: never written back
    uint16_t reserved = 0;
    uint16_t accessFlags[2] = {1, 1};   // carried; no effect in the viewer
    int32_t type = DB_TYPE_ORDINARY;    // DatabaseType
};

struct DbList {
    std::vector<Database> items;  // entries; a pointer is good until the next addition
    uint16_t dirty = 0;           // set by every addition, cleared by dbDirWrite
    int count() const { return static_cast<int>(items.size()); }
};

// The process-wide state of the database subsystem.
extern DbList g_dbList;
extern int g_dbRead;   // index of the read database in g_dbList, -1 for none
extern int g_dbWrite;  // index of the write database, -1 for none
extern int g_dbSaved;  // a third saved current database, -1 for none
extern std::string g_workDir;      // working directory taken at start-up
extern std::string g_resourceDir;  // resource directory given to initialisation

// Results of the lookups.
enum DbFindResult { DB_FOUND = 100, DB_NOT_FOUND = 101, DB_AMBIGUOUS = 102 };
// Results of dbDirWrite.
enum DbDirWriteResult { DB_DIR_WRITTEN = 91, DB_DIR_NOT_OPENED = 92 };
// Results of dbRemove.
enum DbRemoveResult {
    DB_REMOVE_REFUSED = 81,     // the directory tree could not be deleted
    DB_REMOVE_NOT_EMPTY = 82,   // a chapter holds an element
    DB_REMOVED_WITH_DIR = 83,
    DB_REMOVED = 84,
};
// Results of dbCreate.
enum DbCreateResult {
    DB_CREATE_INSIDE = 61,     // the path lies inside a known database or is one
    DB_CREATE_KNOWN = 62,      // the name and path pair is already in the table
    DB_CREATE_EXISTS = 63,     // the path exists already
    DB_CREATE_NO_DIR = 64,     // the directory cannot be made
    DB_CREATE_NO_CHAPTER = 65, // a chapter directory could not be made; entry invalid
    DB_CREATE_OK = 66,
    DB_CREATE_NOT_LISTED = 67, // made but not written to DatabaseDir.rsrc
};

// ---------------------------------------------------------------------------
// The table

void dbListInit(DbList &list);
Database *dbAdd(DbList &list, std::string name, std::string path);
int dbDirRead(DbList &list, const char *file, int system, int readAll);
int dbDirLoad(DbList &list, const char *resourceDir, int readAll);
int dbDirWrite(DbList &list, const char *workDir, const char *file, int append);
bool dbFindExact(const DbList &list, const char *name, const char *path, int *index);
int dbFindByName(const DbList &list, const char *name, Database **db, int *count);
int dbFindByPath(const DbList &list, const char *path, int mode, Database **db, int *count);
Database *dbFirstValid(DbList &list);
int dbHasLocal(const DbList &list);
int dbRemove(DbList &list, Database *db, int deleteDir, int checkEmpty, int silent,
             const char *workDir);
// Makes a database directory with every file chapter and its Chapter.rsrc, adds it
// to the table, and appends it to `dirFile` (null: the default DatabaseDir.rsrc).
int dbCreate(DbList &list, const char *name, const char *path, const char *dirFile);
void dbSetChapter(Database &db, const char *chapterName);
// Expands $VAR and a leading ~, folds /../, cuts a trailing '/'. `out` holds BW_PATH_MAX.
void dbExpandPath(const char *in, char *out);

TOL_Status databaseGet(const char *pathOrName, Database **db);
TOL_Status databaseGetByPath(const char *path, Database **db);
// True when the text names a path rather than a database name.
bool dbIsPathText(const char *text);

// The database directory that `nameOrPath` identifies: the directory itself
// when at least two known chapter directories stand in it, else the parent of
// a chapter directory on the path that passes that test. False if none.
bool dbLocateRoot(const char *nameOrPath, std::string &root);

// A database without SCENES, MODELS and PICTURES directories is a shader library.
void dbShaderLibTest(Database &db);

// Place of a record in g_dbList; -1 for null or a record it does not hold.
int dbIndexOf(const Database *db);
// Makes the database at `index` the read and the write database.
void dbMakeCurrent(int index);

// ---------------------------------------------------------------------------
// Chapters and scenes

int ReadChapterInfo(const char *dbPath, const char *chapterName, ChapterInfo &info,
                    int existenceOnly);
int dbScanChapters(Database &db, int existenceOnly);
// Re-reads VERSIONS from the chapter's Chapter.rsrc into the database's record
// of the chapter and gives the chapter's versions; an unreadable file or one
// without VERSIONS leaves the number as it was (4 for a chapter not listed).
int dbChapterVersions(Database *db, const char *chapterName);

// One file found by chapterScanDir.
struct ScannedFile {
    std::string subdir;    // directory under the chapter with a trailing '/', or ""
    std::string fileName;  // the file's own name
    std::string fullName;  // the name cut at the last '.' behind the last '-'
    std::string suffix;    // text behind the last '.', or ""
    int64_t time = 0;      // modification time, seconds since the epoch
    uint16_t mode = 0;     // file mode bits
    int64_t size = 0;      // bytes
    int shared = 0;        // found under a path containing SHARE
};

using ScanPredicate = bool (*)(const char *fileName, const void *arg);
bool scanSuffixPredicate(const char *fileName, const void *suffix);  // "all" passes all
// What the version predicate wants: files "<stem>.<version>-<revision>...".
struct ScanVersionArg {
    std::string stem;      // formatted prefix-name
    std::string revision;  // "" for any revision
};
// Accepts the version files of an element, never its ".icn" icon file.
bool scanVersionPredicate(const char *fileName, const void *wanted);
// Lists `chapterPath` (and, with `recursive`, its sub-directories) in
// case-insensitive order, keeping the files the predicate accepts.
std::vector<ScannedFile> chapterScanDir(const std::string &chapterPath, ScanPredicate match,
                                        const void *arg, int recursive);
// Full name of the most recently changed scene of the database, or "" for none.
std::string dbLatestScene(Database &db);

// ---------------------------------------------------------------------------
// The lock of a database: the file BW_DB_LOCK__ in its directory.

enum DbLockMode { DB_LOCK_RELEASE = 0, DB_LOCK_TAKE = 1, DB_LOCK_FORCE = 2 };
constexpr int DB_LOCK_TEXT_MAX = 100;  // characters of a lock file shown to the user
// Text of the lock found by the last refused take.
extern char g_dbLockText[DB_LOCK_TEXT_MAX + 1];
// Take: 0 when another holds the lock (its text in g_dbLockText), else 1, also
// when the file cannot be made. Force: 1. Release: 1 if a lock file was deleted.
int dbLock(Database *db, int mode);
