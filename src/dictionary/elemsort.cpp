// Display order of a chapter's elements, and the hierarchical order of the
// ANIMATION chapter.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "dict_internal.h"

void elemHierSort(Chapter *chapter) {
    if (!chapter || dictLegacyLoader()) return;
    int n = chapter->elementCount;
    std::vector<int32_t> &order = chapter->hierOrder;
    std::vector<int32_t> &children = chapter->hierChildCount;
    order.clear();
    children.clear();
    auto put = [&](int index, int count) {
        if (static_cast<int>(order.size()) >= n) {
            fprintf(stderr, " ANIM HierSort: #%d ind > nbelems (%d)\n", index, n);
            return false;
        }
        order.push_back(index);
        children.push_back(count);
        return true;
    };
    // Live elements by their root, in index order: one pass instead of a
    // scan of the chapter per root.
    std::vector<std::vector<int32_t>> byRoot(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) {
        const Element &c = chapter->elements[k];
        if (c.deleted == ELEM_LIVE && c.root >= 0 && c.root < n && c.root != k)
            byRoot[static_cast<size_t>(c.root)].push_back(k);
    }
    for (int i = 0; i < n; ++i) {
        const Element &e = chapter->elements[i];
        if (e.deleted != ELEM_LIVE) {
            if (!put(i, 0)) return;
        } else if (e.lev == 0) {
            // A curve's own curves stand before it, so that a walk backwards
            // from the root finds them.
            int count = 0;
            for (int32_t k : byRoot[static_cast<size_t>(i)]) {
                if (!put(k, 0)) return;
                ++count;
            }
            if (!put(i, count)) return;
        }
    }
}

// ---------------------------------------------------------------------------

namespace {

const char *text(const std::string *s) { return s ? s->c_str() : ""; }

int compareInt(long long a, long long b) { return a < b ? -1 : (a > b ? 1 : 0); }

int versionOf(const Element &e) { return e.name ? atoi(e.name->version.c_str()) : 0; }

std::string prefixName(const ElemName &n) {
    return n.prefix.empty() ? n.name : n.prefix + "-" + n.name;
}

// A picture file of a sequence: stem, frame number, suffix ("walk.12.pic").
struct SequenceParts {
    std::string stem;
    long long number = -1;  // -1 without a number
    std::string suffix;
};

SequenceParts sequenceParts(const Element &e) {
    SequenceParts parts;
    std::string base = e.name->fullName.empty() ? e.name->name : e.name->fullName;
    size_t dot = base.rfind('.');
    if (e.suffix) {
        parts.suffix = e.suffix;
    } else if (dot != std::string::npos) {
        parts.suffix = base.substr(dot + 1);
    }
    if (dot != std::string::npos && !parts.suffix.empty()) base.resize(dot);
    size_t digits = base.size();
    while (digits > 0 && isdigit(static_cast<unsigned char>(base[digits - 1]))) --digits;
    if (digits < base.size() && base.size() - digits < 18)
        parts.number = atoll(base.c_str() + digits);
    parts.stem = base.substr(0, digits);
    return parts;
}

int compareByKey(const Element &a, const Element &b, int key) {
    const ElemName *na = a.name;
    const ElemName *nb = b.name;
    switch (key) {
        case 1: return elemNameCompare(text(na ? &na->subdir : nullptr), text(nb ? &nb->subdir : nullptr));
        case 2: return elemNameCompare(text(na ? &na->alias : nullptr), text(nb ? &nb->alias : nullptr));
        case 4: return elemNameCompare(text(na ? &na->name : nullptr), text(nb ? &nb->name : nullptr));
        case 5: return compareInt(versionOf(a), versionOf(b));
        case 6: return compareInt(na ? na->time : 0, nb ? nb->time : 0);
        case 9: return elemNameCompare(text(na ? &na->fullName : nullptr), text(nb ? &nb->fullName : nullptr));
        case 10: {
            std::string ta = na ? prefixName(*na) : "", tb = nb ? prefixName(*nb) : "";
            return elemNameCompare(ta.c_str(), tb.c_str());
        }
        case 11: {
            bool da = na && (na->mode & 0xF000) == 0x4000, db = nb && (nb->mode & 0xF000) == 0x4000;
            return compareInt(db, da);  // directories first
        }
        case 12: {
            if (!na || !nb) return compareInt(!na, !nb);
            SequenceParts pa = sequenceParts(a), pb = sequenceParts(b);
            if (int c = elemNameCompare(pa.suffix.c_str(), pb.suffix.c_str())) return c;
            if (int c = elemNameCompare(pa.stem.c_str(), pb.stem.c_str())) return c;
            return compareInt(pa.number, pb.number);
        }
        case 13: return compareInt(na ? na->size : 0, nb ? nb->size : 0);
        case 14:
            if (int c = compareInt(a.iconRect[3], b.iconRect[3])) return c;
            return compareInt(a.iconRect[2], b.iconRect[2]);
        case 15:
            if (int c = compareInt(a.iconRect[2], b.iconRect[2])) return c;
            return compareInt(a.iconRect[3], b.iconRect[3]);
        case 16: return a.browserValue[0] < b.browserValue[0] ? -1 : (b.browserValue[0] < a.browserValue[0]);
        case 17: return a.browserValue[1] < b.browserValue[1] ? -1 : (b.browserValue[1] < a.browserValue[1]);
        default: return 0;
    }
}

bool isTextKey(int key) { return key == 1 || key == 2 || key == 4 || key == 9 || key == 10; }

// Full comparison of two live or hidden elements: key, then for the text keys
// deleted state, new, lev and version.
int compareElements(const Element &a, const Element &b, int key) {
    if (int c = compareByKey(a, b, key)) return c;
    if (!isTextKey(key)) return 0;
    if (int c = compareInt(a.deleted, b.deleted)) return c;
    if (int c = compareInt(a.isNew, b.isNew)) return c;
    if (int c = compareInt(a.lev, b.lev)) return c;
    return compareInt(versionOf(a), versionOf(b));
}

}  // namespace

int elemlistSortChapterElements(Chapter *chapter, int chapterId, int key, int direction,
                                int hierarchical) {
    if (!chapter) return 0;
    if ((chapterId == CHP_PICTURES || chapterId == CHP_RENDER_PICTURES) && (key == 4 || key == 9))
        key = 12;
    const Element *elems = chapter->elements;
    int n = chapter->elementCount;
    bool byHierarchy = hierarchical && !chapter->hierOrder.empty();

    // What is sorted: every slot, or with the hierarchy only the roots (and
    // the slots that stand alone in it).
    std::vector<int32_t> units;
    std::vector<int32_t> unitPos(n, -1);  // position of a unit in hierOrder
    if (byHierarchy) {
        const std::vector<int32_t> &order = chapter->hierOrder;
        for (int p = 0; p < static_cast<int>(order.size()); ++p) {
            int k = order[p];
            if (k < 0 || k >= n) continue;
            if (elems[k].deleted != ELEM_LIVE || elems[k].lev == 0) {
                units.push_back(k);
                unitPos[k] = p;
            }
        }
    } else {
        for (int i = 0; i < n; ++i) units.push_back(i);
    }
    std::stable_sort(units.begin(), units.end(), [&](int32_t x, int32_t y) {
        bool freeX = elems[x].deleted == ELEM_FREE_SLOT, freeY = elems[y].deleted == ELEM_FREE_SLOT;
        if (freeX != freeY) return freeY;  // free slots last, in either direction
        if (freeX) return false;
        int c = compareElements(elems[x], elems[y], key);
        return direction ? c < 0 : c > 0;
    });

    std::vector<int32_t> &out = chapter->sorted;
    out.clear();
    for (int32_t k : units) {
        std::vector<int32_t> block;
        if (byHierarchy) {
            // The root's children stand right before it in hierOrder.
            int p = unitPos[k];
            int count = p < static_cast<int>(chapter->hierChildCount.size()) ? chapter->hierChildCount[p] : 0;
            for (int c = std::max(0, p - count); c < p; ++c) block.push_back(chapter->hierOrder[c]);
        }
        block.push_back(k);
        if (static_cast<int>(out.size() + block.size()) > n) {
            fputs("ERROR in elemlistSortChapterElements. Please report\n", stderr);
            break;
        }
        out.insert(out.end(), block.begin(), block.end());
    }
    return static_cast<int>(out.size());
}
