// Parameter lists. The open ones stand in a chain, so that an address which is none of theirs is refused
// without being looked at.
#include "platform/linux/locks.h"
#include "platform/linux/vec.h"
#include "qx/host.h"
#include "qx/xml.h"

#include <cstdlib>
#include <new>

struct QxParaList {
    qx::StaticVec<QxParaSelection> selections;
    QxParaList *next;
};

namespace {

constinit QxParaList *gLists = nullptr; // LockId::lists

// What points at the list in the chain; at null when the list is not open.
QxParaList **findLink(const void *list)
{
    QxParaList **link = &gLists;
    while (*link != nullptr && *link != list) {
        link = &(*link)->next;
    }
    return link;
}

} // namespace

QxParaList *QxHost_ParaListOpen(void)
{
    void *const block = std::malloc(sizeof(QxParaList));
    if (block == nullptr) {
        return nullptr;
    }
    const qx::Lock lock(qx::LockId::lists);
    gLists = ::new (block) QxParaList{.selections = {}, .next = gLists};
    return gLists;
}

uint32_t QxHost_ParaListClose(QxParaList *list)
{
    const qx::Lock lock(qx::LockId::lists);
    QxParaList **const link = findLink(list);
    QxParaList *const found = *link;
    if (found == nullptr) {
        return QX_ERR_NOT_FOUND;
    }
    *link = found->next;
    found->selections.clear();
    std::free(found);
    return QX_OK;
}

uint32_t QxHost_ParaListRead(const QxParaList *list, QxParaSelection *selections, uint32_t max)
{
    const qx::Lock lock(qx::LockId::lists);
    const QxParaList *const found = *findLink(list);
    if (found == nullptr) {
        return 0;
    }
    const uint32_t count = found->selections.count();
    if (selections != nullptr) {
        std::copy_n(found->selections.begin(), std::min(count, max), selections);
    }
    return count;
}

uint32_t QX_XML_DBAppendAllParaToParaList(void *list, uint32_t value1, uint32_t value2, uint32_t value3,
                                          uint32_t value4, uint32_t value5, uint32_t value6)
{
    const qx::Lock lock(qx::LockId::lists);
    QxParaList *const found = *findLink(list);
    if (found == nullptr) {
        return QX_ERR_NOT_FOUND;
    }
    return found->selections.push({{value1, value2, value3, value4, value5, value6}}) ? QX_OK
                                                                                      : QX_ERR_NO_MEMORY;
}
