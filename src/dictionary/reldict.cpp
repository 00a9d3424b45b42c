// The relation table in memory: what a relation id means (chapters, groups,
// rank, fan-out) and the lookups on it.
#include <algorithm>
#include <cstdio>

#include "dict_internal.h"

RelationDict g_relationDict;

namespace {

// The last answer of an indexed lookup. Scene loading asks for the same
// relation many times in a row.
struct RowCache {
    const RelationDict *table = nullptr;  // null: empty
    int32_t relid = 0;                    // relation asked for
    int row = -1;                         // answer
};
RowCache s_rowCache;

void rebuildIndex(const RelationDict &table) {
    RelationIndex &index = *table.index;
    index.sorted.clear();
    index.sorted.reserve(table.rows.size());
    for (int row = 0; row < table.count(); ++row) {
        // Insert behind equal ids so that a relation's rows keep file order.
        int32_t relid = table.rows[row].relid;
        auto at = std::upper_bound(index.sorted.begin(), index.sorted.end(), relid,
                                   [&](int32_t id, int32_t r) { return id < table.rows[r].relid; });
        index.sorted.insert(at, row);
    }
    index.valid = 1;
    s_rowCache = RowCache{};
}

}  // namespace

void relDictClear(RelationDict *table) {
    if (!table) return;
    table->rows.clear();
    table->index.reset();
    s_rowCache = RowCache{};
}

int relDictAddRow(RelationDict *table, const RelationRow &row) {
    if (!table) return -1;
    table->rows.push_back(row);
    if (!table->index) table->index = std::make_unique<RelationIndex>();
    table->index->valid = 0;
    if (s_rowCache.table == table) s_rowCache = RowCache{};
    return table->count() - 1;
}

int relRowFind(const RelationDict *table, int32_t relid) {
    if (!table) return -1;
    if (!table->index) {
        for (int row = 0; row < table->count(); ++row)
            if (table->rows[row].relid == relid) return row;
        return -1;
    }
    if (table->index->valid && s_rowCache.table == table && s_rowCache.relid == relid)
        return s_rowCache.row;
    if (!table->index->valid) rebuildIndex(*table);
    const std::vector<int32_t> &sorted = table->index->sorted;
    auto at = std::lower_bound(sorted.begin(), sorted.end(), relid,
                               [&](int32_t r, int32_t id) { return table->rows[r].relid < id; });
    int row = (at != sorted.end() && table->rows[*at].relid == relid) ? *at : -1;
    s_rowCache = RowCache{table, relid, row};
    return row;
}

int relRowCount(const RelationDict *table, int32_t relid) {
    int row = relRowFind(table, relid);
    if (row < 0) return 0;
    int n = 0;
    while (row + n < table->count() && table->rows[row + n].relid == relid) ++n;
    return n;
}

const char *relName(const RelationDict *table, int32_t relid) {
    int row = relRowFind(table, relid);
    return row < 0 ? "unknown" : table->rows[row].name.c_str();
}

int relRowInstance(const RelationDict *table, int32_t relid, int instance, int16_t *chpFrom,
                   int16_t *chpTo, int16_t *grpFrom, int16_t *grpTo, int16_t *rk, int16_t *fo) {
    int first = relRowFind(table, relid);
    if (first < 0) return 0;
    if (instance < 1) instance = 1;
    long row = static_cast<long>(first) + instance - 1;
    if (row >= table->count() || table->rows[row].relid != relid) return 0;
    const RelationRow &r = table->rows[row];
    if (chpFrom) *chpFrom = r.chpFrom;
    if (chpTo) *chpTo = r.chpTo;
    if (grpFrom) *grpFrom = r.grpFrom;
    if (grpTo) *grpTo = r.grpTo;
    if (rk) *rk = r.rk;
    if (fo) *fo = r.fo;
    return 1;
}

int relFanOutOf(const RelationDict *table, int32_t relid) {
    int row = relRowFind(table, relid);
    return row < 0 ? -1 : table->rows[row].fo;
}

bool relSameChapters(const RelationDict *table, int32_t relid) {
    int row = relRowFind(table, relid);
    if (row < 0) return false;
    const RelationRow &r = table->rows[row];
    return r.chpFrom == REL_ANY_CHAPTER || r.chpTo == REL_ANY_CHAPTER;
}

int relGroups(const RelationDict *table, int32_t relid, int16_t *group, int *instances) {
    int row = relRowFind(table, relid);
    if (group) *group = row < 0 ? int16_t(-1) : table->rows[row].grpFrom;
    if (instances) *instances = relRowCount(table, relid);
    return row >= 0;
}

int32_t relDdSum(const RelationDict *table, int32_t relid) {
    int32_t sum = 0;
    int row = relRowFind(table, relid);
    for (; row >= 0 && row < table->count() && table->rows[row].relid == relid; ++row)
        if (table->rows[row].dd) sum += table->rows[row].fo;
    return sum;
}

int relRowFindByName(const RelationDict *table, const char *name) {
    if (!table || !name) return -1;
    for (int row = 0; row < table->count(); ++row)
        if (table->rows[row].name == name) return row;
    return -1;
}

void relDump(const RelationDict *table) {
    if (!table) return;
    printf(" Dictionary of Relations:\n");
    printf("--------------------------\n");
    for (int i = 0; i < table->count(); ++i) {
        const RelationRow &r = table->rows[i];
        printf("%d) %s(%d) chp[%d->%d] grp[%d->%d] rk(%d) fo(%d) dd(%d) act(%d) actdep(%d)\n", i,
               r.name.c_str(), r.relid, r.chpFrom, r.chpTo, r.grpFrom, r.grpTo, r.rk, r.fo, r.dd,
               r.act, r.actdep);
    }
}
