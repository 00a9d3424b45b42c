// Helpers shared by the files of the database subsystem; not part of its
// public interface.
#pragma once

#include <string>

#include "database.h"

// The two directions of the link table. Where file names are already UNIX
// names the table holds no rule and the text passes unchanged.
std::string linkTabToLocal(const std::string &path);
std::string linkTabToUnix(const std::string &path);
void linkTabInit();

// Forgets the BW_CUSTOM_SHADER value fetched by the first read, so that the
// next read fetches it again.
void dbCustomShaderReset();

// Every backslash turned into '/'.
std::string dbSlashes(std::string path);

// The working directory of the core: the one taken at start-up, else the
// process's current one.
std::string dbWorkDir();

// The file name cut at its last '.' that stands behind the last '-'.
std::string dbStripSuffix(const std::string &fileName);
