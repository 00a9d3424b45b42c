// Ties the nodes of a model tree, read from the file of its root, to the
// MODELS elements that name them. It lives with the dictionary because it
// walks the relations; the model reader itself only reads the dictionary's
// records.
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "dictionary.h"
#include "model.h"
#include "tol_status.h"

namespace {

constexpr int32_t REL_HIERARCHY = 110;  // child towards parent, in RELGR_TRANSFO

// The element's data index orders elements by data pointer: a new pointer
// makes it stale.
void invalidateDataIndex(Dictionary *dict) {
    Chapter *chapter = dictChapter(dict, CHP_MODELS);
    if (chapter && chapter->dataIndex) chapter->dataIndex->valid = 0;
}

// Elements hanging under `parent` by the hierarchy relation, in relation order.
std::vector<int32_t> childrenOf(Dictionary *dict, int32_t parent) {
    std::vector<int32_t> out;
    Element *e = elemGet(dict, CHP_MODELS, parent);
    int32_t chapter = -1, index = -1;
    for (Element *c = relFirst(dict, e, 0, RELGR_TRANSFO, REL_HIERARCHY, CHP_MODELS, &chapter, &index); c;
         c = relNext(dict, e, 0, RELGR_TRANSFO, REL_HIERARCHY, CHP_MODELS, &chapter, &index))
        out.push_back(index);
    return out;
}

// The nodes of a tree by name, each list in the order of modelFindByName's
// walk (children before siblings), so that taking the first free node of a
// list finds what the walk finds, without walking the tree per element.
class NodeIndex {
public:
    explicit NodeIndex(Model *root) {
        std::vector<Model *> stack{root};
        while (!stack.empty()) {
            Model *n = stack.back();
            stack.pop_back();
            if (n->name) byName_[n->name].nodes.push_back(n);
            if (n != root && n->nextSibling) stack.push_back(n->nextSibling);
            if (n->firstChild) stack.push_back(n->firstChild);
        }
    }
    Model *take(Dictionary *dict, const std::string &name) {
        auto it = byName_.find(name);
        if (it == byName_.end()) return nullptr;
        Entry &entry = it->second;
        // Nodes before the cursor are tied already: a tie is never undone here.
        for (; entry.cursor < entry.nodes.size(); ++entry.cursor) {
            Model *n = entry.nodes[entry.cursor];
            if (isFree(dict, n)) return n;
        }
        return nullptr;
    }

private:
    static bool isFree(Dictionary *dict, const Model *n) {
        if (n->elementIndex < 0) return true;
        const Chapter &chapter = dict->chapters[CHP_MODELS];
        if (n->elementIndex >= chapter.elementCount) return true;
        const Element &e = chapter.elements[n->elementIndex];
        return e.isNew == 1 && !e.data;
    }
    struct Entry {
        std::vector<Model *> nodes;
        size_t cursor = 0;
    };
    std::unordered_map<std::string, Entry> byName_;
};

}  // namespace

int modelElemLink(Dictionary *dict, int rootIndex, Model *root) {
    Element *rootElem = dict && root ? elemGet(dict, CHP_MODELS, rootIndex) : nullptr;
    if (!rootElem) return -1;
    rootElem->data = root;
    root->elementIndex = rootIndex;
    const uint16_t shared = rootElem->shared;
    const std::string rootName = rootElem->name ? rootElem->name->name : "";
    invalidateDataIndex(dict);

    // Depth first, each element once: a damaged scene may loop its hierarchy.
    std::vector<char> seen(static_cast<size_t>(dict->chapters[CHP_MODELS].elementCount), 0);
    seen[static_cast<size_t>(rootIndex)] = 1;
    std::vector<int32_t> stack{rootIndex};
    int missing = 0;
    NodeIndex nodes(root);
    while (!stack.empty()) {
        int32_t parent = stack.back();
        stack.pop_back();
        std::vector<int32_t> kids = childrenOf(dict, parent);
        for (auto k = kids.rbegin(); k != kids.rend(); ++k)
            if (*k >= 0 && static_cast<size_t>(*k) < seen.size() && !seen[static_cast<size_t>(*k)]) {
                seen[static_cast<size_t>(*k)] = 1;
                stack.push_back(*k);
            }
        // Names are matched in walking order, so that of two nodes of one
        // name the first element takes the first node.
        for (int32_t index : kids) {
            Element *e = elemGet(dict, CHP_MODELS, index);
            if (!e) continue;
            if (!e->name) {
                fputs("A model node has a NULL name!\n", stderr);
                ++missing;
                continue;
            }
            Model *node = nodes.take(dict, e->name->name);
            if (!node) {
                std::string text = "A model node named [" + e->name->name + "] was expected under root [" +
                                   rootName + "]: it couldn't be found";
                msgShow(text.c_str(), TOL_CLASS_WARNING);
                ++missing;
                continue;
            }
            node->elementIndex = index;
            e->data = node;
            e->shared = shared;
        }
    }
    return missing;
}
