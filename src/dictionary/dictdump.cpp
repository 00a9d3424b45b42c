// The dictionary dump: the one way to see what a load has built.
#include <cstdio>

#include "dictionary.h"

namespace {

// The schematic word as a whole number; out-of-range values are pinned.
int wholeOf(float v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0f) return 2147483647;
    if (v <= -2147483648.0f) return -2147483647 - 1;
    return static_cast<int>(v);
}

void dumpGroups(const RelationGroup *groups, int count) {
    for (int g = 0; groups && g < count; ++g) {
        const RelationGroup &group = groups[g];
        fprintf(stderr, "  |  |  |  |Group %d ------------------ vis[%d] --\n", g,
                static_cast<int>(group.vis));
        for (int i = 0; i < group.count; ++i) {
            const RelationInst &r = group.items[i];
            fprintf(stderr, "  |  |  |  |%d relid[%d] activ[%d] grp[%d] chp[%d] elem[%d] data[%d]", i,
                    r.relid, r.activ, r.grp, r.chp, r.elem, r.data ? 1 : 0);
            if (r.serialid > -1) fprintf(stderr, " serialid[%d]", r.serialid);
            if (r.actfcv > -1) fprintf(stderr, " actfcv[%d]", r.actfcv);
            fputc('\n', stderr);
        }
    }
}

void dumpElement(const Element &e, int index) {
    fprintf(stderr,
            "  |  |  |Element %d (selected %d)(dirty %d)(new %d)(wrkid %d)(lev %d)(root %d)(FLAG %d)\n",
            index, e.selected, e.dirty, e.isNew, e.wrkid, e.lev, e.root, e.flag);
    if (e.deleted != ELEM_LIVE) fprintf(stderr, "  |  |  |Deleted = %d\n", e.deleted);
    if (e.name) {
        fprintf(stderr, "  |  |  |  | name [%s]\n", e.name->fullName.c_str());
        fprintf(stderr, "  |  |  |  | subdir [%s]\n", e.name->subdir.c_str());
    }
    // Pointers show as set or not: their addresses differ from run to run.
    fprintf(stderr, "  |  |  |  |%d aux(%d) icn(%d)\n", e.data ? 1 : 0, e.aux ? 1 : 0,
            wholeOf(e.schemX));
    fprintf(stderr, "  |  |  |Relations >> for elem %d\n", index);
    dumpGroups(e.childGroups, e.childGroupCount);
}

}  // namespace

void dictDump(const Dictionary *dict) {
    if (!dict) return;
    fprintf(stderr, "Dictionnary >>>>>>>>>>>>>>>>>>>>>>>\n");
    for (int c = 0; c < dict->chapterCount; ++c) {
        const Chapter &chapter = dict->chapters[c];
        fprintf(stderr, "  |Chapter %d (%s) chpicn(%d)\n", c, chapter.name.c_str(), chapter.iconIndex);
        fprintf(stderr, "  |  |Elements  ===============================\n");
        for (int i = 0; i < chapter.elementCount; ++i) dumpElement(chapter.elements[i], i);
    }
}
