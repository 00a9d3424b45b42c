// The handles that cross the TOL layer: plain records of indices that name a
// database, a scene or an element. The draw and the graphic side take a scene
// by its handle too, so these stand on nothing of the core.
#pragma once

#include <cstdint>

// Handles that cross the layer.
using TOL_Database = int32_t;  // one-based index into the table of databases; 0 for none

struct TOL_Scene {
    uint32_t dict;          // index of the scene's Dictionary; -1 before creation
    uint32_t selectList;    // index of the scene's select list
    uint32_t tagList;       // index of the second select list
    uint32_t chapters[33];  // chapter ids of the scene's dictionary
};

struct TOL_Elem {
    uint32_t dict;     // dictionary of the element
    uint32_t chapter;  // chapter id
    uint32_t index;    // place in the chapter's list
    int32_t group;     // -1 for none
    uint32_t reserved; // always 0
};

struct TOL_Vector {
    float x, y, z;
};
