// Tables shared by the model reader and writer.
#pragma once

#include "model.h"

// Geometry reader and writer of each node type; null for types without one.
using GeoReadFn = void *(*)(BinReader &r, const Prototype *proto, Model *node);
using GeoWriteFn = int (*)(BinWriter &w, const Prototype *proto, const void *geometry);
extern const GeoReadFn MODEL_GEO_READ[MODEL_TYPE_END];
extern const GeoWriteFn MODEL_GEO_WRITE[MODEL_TYPE_END];
// A zero record of each type, written for a node whose geometry is missing.
const void *modelEmptyGeometry(int32_t type);

// Releases the material list and the 2D texture list of a node, as asked.
void modelListsFree(Model *node, int materials, int textures2D);
// Everything a node owns apart from its children and siblings.
void modelClearFields(Model *node, int keepName);
