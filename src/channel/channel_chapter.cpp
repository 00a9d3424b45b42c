// The channels chapter: an element for each driver of a setup, and the
// dependency check that joins each connection's element to its driver's
// element so that the update list orders the driven parameters after the
// channels they read.
#include <cstdlib>
#include <cstring>
#include <string>

#include "animation.h"
#include "channel.h"
#include "dictionary.h"
#include "tol_status.h"

namespace {

// Item kinds of a connection (the tokens of the setup file) and the chapter
// that holds their elements.
#define CHANNEL_ITEM_ROWS            \
    ITEM_ROW(10, MODELS)             \
    ITEM_ROW(11, WAVES)              \
    ITEM_ROW(12, CAMERAS)            \
    ITEM_ROW(13, LIGHTS)             \
    ITEM_ROW(14, LIGHTS)             \
    ITEM_ROW(15, LIGHTS)             \
    ITEM_ROW(16, LIGHTS)             \
    ITEM_ROW(17, LIGHTS)             \
    ITEM_ROW(18, MATERIALS)          \
    ITEM_ROW(19, TEXTURES2D)         \
    ITEM_ROW(20, TEXTURES3D)

struct ItemChapter {
    int32_t token;  // token id of the item kind
    int chapter;    // chapter of its elements
};
constexpr ItemChapter kItemChapters[] = {
#define ITEM_ROW(token, chapter) {token, CHP_##chapter},
    CHANNEL_ITEM_ROWS
#undef ITEM_ROW
};

// A live element named `text` ("name" or "prefix-name") in `chapter`, or -1.
int32_t findElement(Dictionary *dict, int chapter, const std::string &text) {
    int32_t index = elemFindByName(dict, chapter, -1, nullptr, text.c_str(), -1, -1, 0);
    const size_t dash = text.find('-');
    if (index < 0 && dash != std::string::npos && dash > 0)
        index = elemFindByName(dict, chapter, -1, text.substr(0, dash).c_str(),
                               text.substr(dash + 1).c_str(), -1, -1, 0);
    return index;
}

// The element of a connection: in the chapter of its item kind, or, with no
// kind given, in the first chapter of the table that holds it.
bool findItem(Dictionary *dict, int32_t itemType, const std::string &name, int *chapter,
              int32_t *element) {
    for (const ItemChapter &row : kItemChapters) {
        if (itemType != 0 && row.token != itemType) continue;
        const int32_t index = findElement(dict, row.chapter, name);
        if (index >= 0) {
            *chapter = row.chapter;
            *element = index;
            return true;
        }
    }
    return false;
}

// The row of relation 20010 a connection stands on: an output reads the
// element's finished transform; an input sets its parameter in the group the
// parameter belongs to, a transform before the model's hierarchy step.
int channelRelationInstance(const ChannelConnectionTarget &target, bool output) {
    ParamInfo info;
    const bool transfo = paramInfo(paramLookup(target.chapter, target.parameter.c_str()), &info) &&
                         info.group == RELGR_TRANSFO;
    const char *row = output ? "expressionChannelOutput" : transfo ? "expressionChannelTransfo" : "expressionChannel";
    const int named = relRowFindByName(&g_relationDict, row);
    const int first = relRowFind(&g_relationDict, REL_EXPRESSION);
    return named >= first && first >= 0 ? named - first + 1 : 0;
}

}  // namespace

std::string channelDriverElementName(const char *driverName) {
    char text[96];
    snprintf(text, sizeof text, "CHN %.80s", driverName ? driverName : "");
    return text;
}

void channelChapterFree(Dictionary *dict) {
    Chapter *chapter = dictChapter(dict, CHP_CHANNEL_DRIVERS);
    if (!chapter) return;
    for (int i = 0; i < chapter->elementCount; ++i) {
        Element *e = elemGet(dict, CHP_CHANNEL_DRIVERS, i);
        if (!e || e->deleted == ELEM_FREE_SLOT) continue;
        free(e->data);  // the ChannelDriverRecord this file made
        e->data = nullptr;
        elemRemove(dict, CHP_CHANNEL_DRIVERS, nullptr, i, -1, 0, 1);
    }
}

int channelChapterMake(Dictionary *dict, ChannelSetup *setup) {
    if (!dict || !dictChapter(dict, CHP_CHANNEL_DRIVERS)) return 0;
    channelChapterFree(dict);
    int made = 0;
    for (int i = 0; setup && i < setup->driverCount; ++i) {
        auto *record = static_cast<ChannelDriverRecord *>(malloc(sizeof(ChannelDriverRecord)));
        if (!record) break;
        *record = ChannelDriverRecord{setup, i};
        ElemName *name = elemNameNew();
        name->name = channelDriverElementName(setup->drivers[i].name.c_str());
        name->fullName = name->name;
        if (elemAdd(dict, CHP_CHANNEL_DRIVERS, name, record, nullptr, 0, 0) < 0) {
            free(record);
            break;
        }
        ++made;
    }
    return made;
}

int channelConnectionCompile(Dictionary *dict, const ChannelSetup *setup,
                             ChannelConnection *connection, ChannelConnectionTarget *target,
                             std::string *error) {
    // Linear forms only for now: "elem.param = scale * CHN drv.dof + offset"
    // and its output mirror. A richer expression compiles here too.
    int kind = 0;
    ChannelConnectionParts parts;
    if (!channelConnectionParse(connection->expression.c_str(), &kind, &parts)) {
        *error = "Bad channel connection \"" + connection->expression + "\".";
        return CHANNEL_COMPILE_BAD;
    }
    const size_t dot = parts.channel.find('.');
    if (dot == std::string::npos ||
        !channelDofLookup(setup, parts.channel.substr(0, dot).c_str(),
                          parts.channel.substr(dot + 1).c_str(), &target->driver, &target->dof)) {
        *error = "Channel connection \"" + connection->expression + "\": no channel " +
                 parts.channel + ".";
        return CHANNEL_COMPILE_BAD;
    }
    const std::string driverElement =
        channelDriverElementName(setup->drivers[target->driver].name.c_str());
    target->driverElement = elemFindByName(dict, CHP_CHANNEL_DRIVERS, -1, nullptr,
                                           driverElement.c_str(), -1, -1, 0);
    if (target->driverElement < 0) {
        *error = "Channel connection \"" + connection->expression + "\": driver " +
                 setup->drivers[target->driver].name + " is not in the channels chapter.";
        return CHANNEL_COMPILE_BAD;
    }
    target->parameter = parts.parameter;
    if (!findItem(dict, connection->itemType, parts.element, &target->chapter, &target->element))
        return CHANNEL_COMPILE_GONE;
    connection->kind = static_cast<uint16_t>(kind);
    connection->element = target->element;
    const int row = relRowFindByName(&g_relationDict, parts.parameter.c_str());
    connection->relation = row >= 0 ? g_relationDict.rows[row].relid : 0;
    return CHANNEL_COMPILE_OK;
}

int channelDependencyCheck(Dictionary *dict, ChannelSetup *setup, int inRun) {
    if (!dict || !setup) return 0;
    setup->cycle = 0;
    setup->inputCount = setup->outputCount = 0;
    // The connections' old relations go: every 20010 on a driver's element.
    Chapter *chapter = dictChapter(dict, CHP_CHANNEL_DRIVERS);
    for (int i = 0; chapter && i < chapter->elementCount; ++i) {
        if (chapter->elements[i].deleted != ELEM_LIVE) continue;
        relRemove(dict, CHP_CHANNEL_DRIVERS, i, 1, REL_EXPRESSION, -1, -1, -1);
        relRemove(dict, CHP_CHANNEL_DRIVERS, i, 0, REL_EXPRESSION, -1, -1, -1);
    }
    ChannelConnection **link = &setup->connections;
    while (ChannelConnection *c = *link) {
        if (!c->active) {
            link = &c->next;
            continue;
        }
        ChannelConnectionTarget target;
        std::string error;
        const int result = channelConnectionCompile(dict, setup, c, &target, &error);
        if (result == CHANNEL_COMPILE_BAD) {
            msgShow(error.c_str(), TOL_CLASS_WARNING);
            *link = c->next;  // dropped
            fcurveFree(c->fcurve);
            delete c;
            continue;
        }
        link = &c->next;
        if (result == CHANNEL_COMPILE_GONE) {
            msgShowf(TOL_CLASS_WARNING, "Channel connection \"%s\" disabled: its element is gone.",
                     c->expression.c_str());
            c->enabled = 0;
            c->valid = 0;
            continue;
        }
        // Both directions stand on the channel row of the relation: an input
        // reads the driver's element, an output is read by it.
        const bool output = c->kind == CHANNEL_CONN_OUTPUT;
        const int instance = channelRelationInstance(target, output);
        const int ok = output ? relAddExpression(dict, nullptr, CHP_CHANNEL_DRIVERS, target.driverElement,
                                                 target.chapter, target.element, instance, -1, nullptr)
                              : relAddExpression(dict, nullptr, target.chapter, target.element,
                                                 CHP_CHANNEL_DRIVERS, target.driverElement, instance, -1,
                                                 nullptr);
        c->valid = ok ? 1 : 0;
        c->list = c->valid ? &setup->mainList : nullptr;
        if (c->valid && c->enabled) ++(output ? setup->outputCount : setup->inputCount);
    }
    // The check leaves the list as it was, to be built when the run starts.
    dict->update.dirty = 1;
    if (!updatelistBuild(dict, &dict->update, 1, 0)) {
        setup->cycle = 1;
        msgShow(inRun ? "Dependency cycle detected - channels won't run"
                      : "The connections are generating a cycle in dependencies.",
                TOL_CLASS_ERROR);
    }
    dict->update.dirty = 1;
    return setup->cycle ? 0 : 1;
}
