// Renaming elements and making new unique names.
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "dict_internal.h"

namespace {

void setName(Element &e, const std::string &prefix, const std::string &name) {
    e.name->prefix = prefix;
    e.name->name = name;
    e.name->fullName = elemNameFormat(*e.name);
}

}  // namespace

int elemRename(Dictionary *dict, int chapterId, Element *elem, const char *prefix,
               const char *name) {
    int index = elemIndexOf(dict, chapterId, elem);
    if (index < 0 || !elem->name || elem->deleted == ELEM_FREE_SLOT) return -1;
    std::string newPrefix = elemNameSanitize(prefix ? prefix : "", 1);
    std::string newName = elemNameSanitize(name ? name : "", 0);
    if (newName.empty()) return 1;
    if (newPrefix == elem->name->prefix && newName == elem->name->name) return 1;
    // Parts of one hierarchy clash among themselves; a root with any element.
    int root = elem->lev > 0 ? elem->root : -1;
    if (elemFindByName(dict, chapterId, index, newPrefix.c_str(), newName.c_str(), -1, root, 0) >= 0)
        return 1;
    std::string oldName = elem->name->name;
    setName(*elem, newPrefix, newName);
    elem->isNew = 2;  // saved under the new name as a new file
    if (chapterId == CHP_SCENES) {
        // The scene's elements carry its name as their prefix.
        for (int c = 0; c < dict->chapterCount; ++c) {
            if (c == CHP_PICTURES) continue;
            Chapter &chapter = dict->chapters[c];
            for (int i = 0; i < chapter.elementCount; ++i) {
                Element &e = chapter.elements[i];
                if ((c == chapterId && i == index) || !e.name || e.shared) continue;
                if (e.name->prefix == oldName) setName(e, newName, e.name->name);
            }
        }
    } else if (chapterId == CHP_ANIMATION) {
        // The curves of one animation share its name.
        Chapter &chapter = dict->chapters[chapterId];
        for (int i = 0; i < chapter.elementCount; ++i) {
            Element &e = chapter.elements[i];
            if (i == index || !e.name || e.root != index) continue;
            setName(e, newPrefix, newName);
            e.isNew = 2;
        }
    }
    dict->browserDirty = 1;
    return 0;
}

// ---------------------------------------------------------------------------

namespace {

int s_uniqueMax = 0;  // highest number met or handed out; process-wide

}  // namespace

void elemUniqueNameReset() { s_uniqueMax = 0; }

std::string elemUniqueName(Dictionary *dict, int chapterId, const char *base, int *number,
                           int byPrefix) {
    std::string stem = base && *base ? base : "def";
    while (!stem.empty() && isdigit(static_cast<unsigned char>(stem.back()))) stem.pop_back();
    if (dictLegacyLoader()) {
        if (s_uniqueMax < INT_MAX) ++s_uniqueMax;
        if (number) *number = s_uniqueMax;
        return stem + "_" + std::to_string(s_uniqueMax);
    }
    if (Chapter *chapter = dictChapter(dict, chapterId)) {
        for (int i = 0; i < chapter->elementCount; ++i) {
            const Element &e = chapter->elements[i];
            if (e.deleted != ELEM_LIVE || !e.name) continue;
            const std::string &text = byPrefix ? e.name->prefix : e.name->name;
            if (text.size() <= stem.size() || strncasecmp(text.c_str(), stem.c_str(), stem.size()))
                continue;
            const char *digits = text.c_str() + stem.size();
            if (!isdigit(static_cast<unsigned char>(*digits))) continue;
            errno = 0;
            long n = strtol(digits, nullptr, 10);
            if (errno == 0 && n < INT_MAX) s_uniqueMax = std::max(s_uniqueMax, static_cast<int>(n));
        }
    }
    if (number) *number = s_uniqueMax + 1;
    return stem + std::to_string(s_uniqueMax + 1);
}
