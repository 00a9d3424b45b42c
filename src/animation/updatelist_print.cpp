// The printed form of an update list, for the list dump of the viewer.
#include <cstring>

#include "updatelist_internal.h"

namespace {

const char *chapterName(Dictionary *dict, int chapter) {
    Chapter *c = dictChapter(dict, chapter);
    return c ? c->name.c_str() : "?";
}

const char *elementName(Dictionary *dict, int chapter, int32_t index) {
    Element *e = elemGet(dict, chapter, index);
    return e && e->name ? e->name->fullName.c_str() : "?";
}

}  // namespace

void updatelistPrint(FILE *out, Dictionary *dict, const UpdateList *list, int verbose,
                     const char *title) {
    if (!out || !list) return;
    if (title) {
        fprintf(out, "%s\n", title);
        for (size_t i = strlen(title); i > 0; --i) fputc('-', out);
        fputc('\n', out);
    }
    fprintf(out, " \n\n UPDATE LIST: \n");
    for (int32_t i = 0; i < list->count; ++i) {
        const UpdateRecord &r = list->records[i];
        if (!verbose) {
            int32_t chp = r.sourceCount > 0 ? r.sources[0].chapter : -1;
            int32_t elm = r.sourceCount > 0 ? r.sources[0].element : -1;
            fprintf(out, "%d) chp,elm,grp[%d,%d,%d] = rel[%d] (chp,elm[%d,%d])\n", i, r.chapter,
                    r.element, r.group, r.relation, chp, elm);
            continue;
        }
        fprintf(out, "%d) %s %s (grp %d) = %s%c(", i, chapterName(dict, r.chapter),
                elementName(dict, r.chapter, r.element), r.group,
                relName(&g_relationDict, r.relation), r.relationData ? '+' : ' ');
        for (int s = 0; s < r.sourceCount; ++s) {
            const UpdateSource &src = r.sources[s];
            fprintf(out, "%s %s%c(g %d)%s,", chapterName(dict, src.chapter),
                    elementName(dict, src.chapter, src.element), src.fcurve ? '~' : ' ', src.group,
                    src.active ? "" : "-> INACTIVE");
        }
        fprintf(out, ")%s\n", r.active ? "" : " -> INACTIVE <-");
    }
}
