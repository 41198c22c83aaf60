/*
 * What a host process calls: the programs that load the library, serve a terminal or stand in for the kernel.
 *
 * All that crosses processes travels on one bus of local sockets in the runtime directory ($ZEMA_RUNTIME_DIR,
 * else /run/zema for root, else $XDG_RUNTIME_DIR/zema), of mode 0700. There is no broker. The platform starts
 * no thread: what arrives is handled inside QxHost_Dispatch, on the thread that calls it. Only processes of
 * the same user, or of root, are listened to. A process that dies is noticed at once; one that hangs costs
 * its callers at most the time set with QxHost_SetTimeout.
 *
 * A child made by fork starts without registrations and joins the bus anew when it first uses it; one that
 * was forked inside a handler may return from it, and the dispatch then ends with QX_ERR_STOPPED.
 */
#ifndef QX_HOST_H
#define QX_HOST_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* ---- Receiving ---- */

/*
 * Handles what has arrived, waiting up to timeoutMs milliseconds (-1: without limit, 0: not at all) for the
 * first of it. 0 when something was handled, QX_ERR_TIMEOUT when nothing came, QX_ERR_STOPPED after
 * QxHost_Stop, QX_ERR_BUSY from inside a handler or while another thread dispatches, QX_ERR_RUNTIME_DIR.
 */
QX_API uint32_t QxHost_Dispatch(int32_t timeoutMs);

/* Dispatches until QxHost_Stop. 0 when stopped, else why it could not go on. */
QX_API uint32_t QxHost_Run(void);

/* Ends QxHost_Run, or a wait in QxHost_Dispatch, once. May be called from a signal handler and any thread. */
QX_API void QxHost_Stop(void);

/* A descriptor that is readable when QxHost_Dispatch has work, for an event loop of the host's own; -1 when
 * the bus cannot be joined. It stays the platform's. */
QX_API int32_t QxHost_Fd(void);

/* Leaves the bus: gives up all roles, closes all descriptors, removes what stands in the runtime directory
 * but for the records; the members of open flows count as dead. The end of the process does the same. No
 * other thread uses the platform meanwhile. 0, or QX_ERR_BUSY from inside a handler or while another thread
 * dispatches. */
QX_API uint32_t QxHost_Leave(void);

/* How long a call waits for a hung process, in milliseconds; 5000 until set, 0 sets it back. Applies to
 * connections made afterwards; set it before the first use. 0. */
QX_API uint32_t QxHost_SetTimeout(uint32_t milliseconds);

/* What QX_OS_StatGet reports. 0. */
QX_API uint32_t QxHost_SetState(uint32_t state);

/* What QX_MSG_GetCurThreadMid reports on the calling thread. */
QX_API void QxHost_SetCurThreadMid(uint32_t mid);

/* ---- Roles ---- */

typedef struct QxPrint {
    uint32_t ulTerminal; /* the terminal as the printing process named it, 0xFFFF for all */
    uint32_t ulPid;      /* the process that prints */
    const char *pcBytes; /* valid during the call, not terminated */
    uint32_t ulSize;
} QxPrint;

/* Writes bytes on a terminal; 0 when written. Called inside dispatch, or by a print of this process itself.
 */
typedef uint32_t (*QxTerminalWriter)(void *context, const QxPrint *print);

/* Serves a terminal (0 to 65534); several processes may serve one, and each gets what is printed. A null
 * writer ends it. 0, QX_ERR for another terminal, QX_ERR_NO_MEMORY, also for a 65th one of this process,
 * QX_ERR_RUNTIME_DIR. */
QX_API uint32_t QxHost_ServeTerminal(uint32_t terminal, QxTerminalWriter writer, void *context);

/* Gets each HLP message (qx/hlp.h), size bytes that were checked to be a header with that size. The items in
 * it are the sender's word: check them. Called inside dispatch. */
typedef uint32_t (*QxKernelHandler)(void *context, const void *message, uint32_t size);

/* Takes the kernel's side of the HLP messages. One process at a time: QX_ERR_TAKEN while another lives. A
 * null handler ends it. 0, QX_ERR_TIMEOUT, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR. */
QX_API uint32_t QxHost_ServeKernel(QxKernelHandler handler, void *context);

/* ---- Synchronous requests ---- */

typedef struct QxSyncRequest {
    uint32_t ulCode;
    uint32_t ulPid;       /* the process that asks */
    const void *pvData;   /* the request, aligned to 16 bytes unless it is this process's own */
    uint32_t ulSize;      /* of the request, at most 65535 */
    void *pvReply;        /* where the reply goes, aligned likewise */
    uint32_t ulReplySize; /* what the asking process wants, at most 65535 */
} QxSyncRequest;

/* Answers a request (qx/data_sync.h): 0 when it has written all ulReplySize bytes of the reply; any other
 * result is the request's, and no reply is sent. Check the sizes before use. Called inside dispatch, or by
 * whichever thread of this process asks itself, but never twice at once: one that asks meanwhile waits for as
 * long as the handler takes. */
typedef uint32_t (*QxSyncHandler)(void *context, const QxSyncRequest *request);

/* Answers the synchronous requests of all processes. One process at a time: QX_ERR_TAKEN while another lives.
 * A null handler ends it. 0, QX_ERR_TIMEOUT, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR. */
QX_API uint32_t QxHost_ServeSync(QxSyncHandler handler, void *context);

/* ---- Messages to modules ---- */

/* Gets each message to a module: a header of QX_MSG_HEADER_SIZE bytes (qx/message.h) whose size word is what
 * came behind it, that payload, and at least 1024 zero bytes; size is of both. Called inside dispatch. */
typedef uint32_t (*QxMessageHandler)(void *context, void *message, uint32_t size);

/* Serves a module. One process at a time: QX_ERR_TAKEN while another lives. A null handler ends it, and
 * messages that wait to be dispatched are dropped. 0, QX_ERR_TIMEOUT, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR.
 */
QX_API uint32_t QxHost_ServeModule(uint32_t module, QxMessageHandler handler, void *context);

/* ---- Shared-memory blocks ---- */

typedef struct QxBlock {
    uint64_t ullAgeNs;
    uint32_t ulId;
    uint32_t ulSize;
    uint32_t ulPid;     /* the process that made it; 0, as the size, when that died over it */
    uint32_t ulAlive;   /* 1 while that process lives */
    char acProcess[16]; /* its name */
} QxBlock;

/* 0 to go on; any other result ends the listing and becomes its result. */
typedef uint32_t (*QxBlockVisitor)(void *context, const QxBlock *block);

/* Visits the blocks (qx/vdata.h) of this user that there are. A process need not live for its blocks to be
 * read: what to do about those whose maker is gone is for who knows whether a reader is to come. 0, the
 * visitor's result, QX_ERR, QX_ERR_NOT_FOUND without a folder for them. */
QX_API uint32_t QxHost_ListBlocks(QxBlockVisitor visitor, void *context);

/* ---- What passes on the bus ---- */

/* What a passage is. A word of a flow and what the functions below exchange are none. */
#define QX_PASSAGE_EVENT 2U
#define QX_PASSAGE_RPC 3U
#define QX_PASSAGE_PRINT 4U
#define QX_PASSAGE_HLP 5U
#define QX_PASSAGE_SYNC 7U
#define QX_PASSAGE_MESSAGE 8U

/* Something that a process has received and is done with. */
typedef struct QxPassage {
    uint64_t ullTimeNs; /* when it was done: real time, nanoseconds since 1970 */
    uint64_t ullTookNs; /* what the receiver needed for it */
    uint32_t ulKind;    /* QX_PASSAGE_..., or another number from a process that does not keep the rules */
    uint32_t ulSenderPid;
    uint32_t ulReceiverPid;
    uint32_t ulNumber; /* event, procedure, terminal, type of HLP message, operation, module */
    uint32_t ulWord;   /* caller word of a procedure, reply's size of a synchronous request */
    uint32_t ulSize;   /* of what was received */
    uint32_t ulStatus; /* 0, or why the receiver could not handle it */
    uint32_t ulResult; /* the handler's */
    uint32_t ulMissed; /* passages at this receiver before this one that found no room on their way here */
    uint32_t ulBytes;  /* how many of what was received, behind the header of a message, follow */
    char acBytes[64];
} QxPassage;

typedef void (*QxMonitor)(void *context, const QxPassage *passage);

/* Gets what passes at all other processes of this user from now on. None of them ever waits for it: what
 * finds no room here, because this process does not dispatch fast enough, is left out and counted. Called
 * inside dispatch. A null monitor ends it. 0, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR. */
QX_API uint32_t QxHost_Monitor(QxMonitor monitor, void *context);

typedef struct QxProcess {
    uint32_t ulPid;
    uint32_t ulResult; /* 0 when it answered; QX_ERR_TIMEOUT when not in time, or what else became of it */
    uint32_t ulConnections; /* that others have to it */
    uint32_t ulWaiting;     /* bytes that wait there to be received; where the kernel does not tell, these two
                               are the process's own word, and 0 when it did not answer */
    uint64_t ullHandled;    /* what it has received and handled since it joined; 0 when it did not answer */
    char acName[16];        /* the program's name, "?" when it could not be learnt */
} QxProcess;

/* 0 to go on; any other result ends the listing and becomes its result. */
typedef uint32_t (*QxProcessVisitor)(void *context, const QxProcess *process);

/* Asks every process on the bus but this one how it fares, one after the other; one that hangs takes the time
 * set with QxHost_SetTimeout. 0, the visitor's result, QX_ERR, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR. Any
 * thread. */
QX_API uint32_t QxHost_ListProcesses(QxProcessVisitor visitor, void *context);

typedef struct QxRoleHeld {
    uint64_t ullHeldNs; /* for how long */
    uint32_t ulPid;
    char acRole[28]; /* as in the runtime directory: "event-8853" */
} QxRoleHeld;

/* 0 to go on; any other result ends the listing and becomes its result. */
typedef uint32_t (*QxRoleVisitor)(void *context, const QxRoleHeld *role);

/* Visits the roles that processes hold, by kind, number and age; one of a process that was killed may be
 * among them until somebody meets it. 0, the visitor's result, QX_ERR, QX_ERR_RUNTIME_DIR. Any thread. */
QX_API uint32_t QxHost_ListRoles(QxRoleVisitor visitor, void *context);

/* ---- Remote procedures ---- */

/*
 * Calls the remote procedure and waits for its result; a procedure of this process is a plain call. 0 and the
 * handler's result in *result; QX_ERR, QX_ERR_NOBODY, QX_ERR_PEER_GONE, QX_ERR_TIMEOUT, QX_ERR_TOO_LARGE,
 * QX_ERR_PROTOCOL, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR, and *result untouched. Any thread.
 */
QX_API uint32_t QxHost_CallRpc(uint32_t id, uint32_t callerWord, const char *text, uint32_t *result);

/* ---- Following a command to its end ----
 *
 * A flow is a piece of work that spreads: a call makes its callee raise an event, which reaches other
 * processes, which may raise more. The bus marks all frames that come from the flow's first ones, and every
 * process that is done with one tells the flow's origin, together with where it sent more. So the origin
 * knows who has it and when all of them are through, without guessing. What a handler leaves to another
 * thread is not followed. What a process printed for the flow arrives before its word that it is done.
 *
 * One thread, the one that dispatches.
 */

typedef struct QxFlow QxFlow;

#define QX_FLOW_WAITING 0U /* has the work, has not said that it is done */
#define QX_FLOW_DONE 1U
#define QX_FLOW_DIED 2U /* ended before it was done */

typedef struct QxFlowPeer {
    uint32_t ulPid;
    uint32_t ulState; /* QX_FLOW_... */
    char acName[16];  /* the program's name, "?" when it could not be learnt */
} QxFlowPeer;

/* A new flow; null when there is no memory or the bus cannot be joined. End it with QxHost_FlowClose. */
QX_API QxFlow *QxHost_FlowOpen(void);
QX_API void QxHost_FlowClose(QxFlow *flow);

/* Starts a remote procedure, or raises an event, as the flow's work, without waiting. 0 when handed over; the
 * results of QxHost_CallRpc and EventCenter_GlobalInvokeEvent2. This process's own subscribers and procedures
 * are not called. */
QX_API uint32_t QxHost_FlowCallRpc(QxFlow *flow, uint32_t id, uint32_t callerWord, const char *text);
QX_API uint32_t QxHost_FlowInvokeEvent(QxFlow *flow, uint32_t event, const void *data, uint32_t size);

/* Dispatches until every process is done or dead: 0. QX_ERR_TIMEOUT when some still are not after timeoutMs;
 * QX_ERR_STOPPED after QxHost_Stop; QX_ERR without a flow; the results of QxHost_Dispatch. May be called
 * again. */
QX_API uint32_t QxHost_FlowWait(QxFlow *flow, uint32_t timeoutMs);

/* The result of the flow's remote procedure: 0 when it has come, QX_ERR_NOT_FOUND when not,
 * QX_ERR for a missing argument. */
QX_API uint32_t QxHost_FlowResult(const QxFlow *flow, uint32_t *result);

/* The processes that received the flow's work, in the order in which the origin learnt of them: copies at
 * most max of them and returns how many there are. */
QX_API uint32_t QxHost_FlowPeers(const QxFlow *flow, QxFlowPeer *peers, uint32_t max);

/* ---- Parameter lists ----
 *
 * What QX_XML_DBAppendAllParaToParaList (qx/xml.h) appends to, and the host reads back. Any thread.
 */

typedef struct QxParaSelection {
    uint32_t aulValue[6]; /* as they were appended, in this order */
} QxParaSelection;

typedef struct QxParaList QxParaList;

/* A new, empty list; null when there is no memory. End it with QxHost_ParaListClose: 0, or QX_ERR_NOT_FOUND
 * for what is no open list. */
QX_API QxParaList *QxHost_ParaListOpen(void);
QX_API uint32_t QxHost_ParaListClose(QxParaList *list);

/* The list's selections in the order of their addition: copies at most max of them and returns how many there
 * are; 0 for what is no open list. */
QX_API uint32_t QxHost_ParaListRead(const QxParaList *list, QxParaSelection *selections, uint32_t max);

/* ---- Last-word records ---- */

typedef struct QxRecord {
    uint64_t ullNumber; /* counts the records of its process from 1 */
    uint64_t ullTimeNs; /* real time, nanoseconds since 1970 */
    uint32_t ulPid;
    uint32_t ulThread;
    uint32_t ulAlive; /* 1 while its process lives */
    uint32_t ulLine;
    uint32_t aulValue[5];
    char acProcess[16];
    char acFile[64];
} QxRecord;

/* 0 to go on; any other result ends the reading and becomes its result. */
typedef uint32_t (*QxRecordVisitor)(void *context, const QxRecord *record);

/*
 * Visits the records of all processes in the order of their time, those of dead processes included; the ring
 * of a process keeps its latest 256. Reads only; records that are being written meanwhile are left to the
 * next reading. 0, the visitor's result, QX_ERR without a visitor, QX_ERR_RUNTIME_DIR, QX_ERR_NO_MEMORY.
 */
QX_API uint32_t QxHost_ReadRecords(QxRecordVisitor visitor, void *context);

QX_END_DECLS

#endif
