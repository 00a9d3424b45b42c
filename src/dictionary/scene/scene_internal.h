// Helpers shared by the scene-file readers and the load; not part of the
// dictionary's public interface. The tests reach them too.
#pragma once

#include <cstdint>
#include <cstdio>
#include <unordered_map>

#include "dictionary.h"

// Reads the next token; true when one stands in g_token.
bool sceneNextToken(FILE *stream);

// Element references of the files being loaded: (chapter, scene, position)
// to element index, so that a scene of many relations resolves each in
// constant time. The reference reader falls back to a scan for elements it
// does not know.
struct SceneRefIndex {
    std::unordered_map<uint64_t, int32_t> map;  // key of refKey, element index
};
void sceneRefReset();
void sceneRefNote(int chapterId, int sceneIndex, int32_t wrkid, int32_t index);
