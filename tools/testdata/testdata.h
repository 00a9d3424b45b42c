// Test data on disk: a database made through dbCreate and element files put
// into its chapters under the names the naming rules give, each write taking
// the next version and pruning beyond the chapter's VERSIONS, as a save does.
//
// Element names may carry a prefix ("demo-ball"). Every writer returns the
// path of the file it wrote, or "" after a failure (reported on stderr).
#pragma once

#include <ctime>
#include <string>

#include "database.h"
#include "material.h"
#include "model.h"

// Makes the database `name` at `dir` with every chapter and lists it in
// `dirFile` (empty: the default DatabaseDir.rsrc). Returns its entry in
// g_dbList, good until the next addition to the table; null on failure.
Database *tdDatabaseCreate(const std::string &dir, const std::string &name,
                           const std::string &dirFile);

// MODELS: "<name>.<version>-0.hrc" holding the tree under `root`.
std::string tdWriteModel(Database *db, const std::string &name, const Model *root);
// MATERIALS and TEXTURES2D: stand-alone ".mtr" and ".txt" files.
std::string tdWriteMaterial(Database *db, const std::string &name, const Material &material);
std::string tdWriteTexture2D(Database *db, const std::string &name, const Texture2D &texture);
// SCENES: a ".dsc" file holding `text` as given, its modification time set to
// `mtime` so that the newest scene is the one the caller chose.
std::string tdWriteScene(Database *db, const std::string &name, const std::string &text,
                         time_t mtime);
