// Helpers shared by the files of the dictionary library; not part of its
// public interface. The tests reach them too.
#pragma once

#include "dictionary.h"

// BW_LOAD_OPTIM and BW_NEO_LEGACYLOADER: presence counts, read once per process.
bool dictLoadOptim();
bool dictLegacyLoader();
// Forgets both reads, so that the next question reads the environment again.
void dictEnvReset();

// Forgets the running maximum of elemUniqueName.
void elemUniqueNameReset();

// Drops the one-entry cache of elemFindByData when it refers to `chapter`
// (null: whatever it refers to).
void elemDataCacheForget(const Chapter *chapter);

// Frees the instances of `count` groups (relation data included) and the array.
void relGroupsFree(RelationGroup *groups, int count);
// Six empty groups, malloc'd.
RelationGroup *relGroupsNew();

// The element at (chapter, index) whatever its deleted state; null when out of range.
Element *elemAt(Dictionary *dict, int chapterId, int index);
