/*
 * The configuration database: parameters selected from it.
 */
#ifndef QX_XML_H
#define QX_XML_H

#include "qx/base.h"

QX_BEGIN_DECLS

/*
 * Appends to a list the database's parameters that six values select. The list is one that the host made with
 * QxHost_ParaListOpen (qx/host.h); it keeps the values, and the host reads them back. 0 when appended,
 * QX_ERR_NOT_FOUND for what is no open list, QX_ERR_NO_MEMORY. Any thread.
 */
QX_API uint32_t QX_XML_DBAppendAllParaToParaList(void *list, uint32_t value1, uint32_t value2,
                                                 uint32_t value3, uint32_t value4, uint32_t value5,
                                                 uint32_t value6);

QX_END_DECLS

#endif
