/**
 * @file
 * @ingroup rpc_engine
 * A small JSON request/response engine.
 */

/**
 * @addtogroup rpc_engine
 * A small JSON request/response engine. One context, `_grpc_t`, is one end of one conversation; its
 * owner brings the transport as two hooks, the engine itself does no I/O.
 *
 * A request is one JSON object (RFC 8259), printed unformatted:
 *
 *     {"method": "add", "param": ..., "sentcnt": 7,
 *      "user": {"name": "bob", "digest": "<32 hex digits>"}}
 *
 * `"user"` stands there when the caller has an account; the digest is the MD5 (RFC 1321) of name,
 * method and password written one after the other, in lower-case hexadecimal. The response is the
 * request without `"param"`, with the handler's members and an `"error"` added:
 *
 *     {"method": "add", "sentcnt": 7, "user": ..., "sum": 3, "error": {"errorcode": 0}}
 *
 * A failure reads `"error": {"errorcode": -32601, "message": "Method not found"}`. Binary data may
 * follow the text of either, after one zero byte.
 *
 * Life of a context: grpc_new(), grpc_init(), any number of message cycles, grpc_delete().
 * - Serving: grpc_s_serve(), or grpc_s_serve_direct() for a message that is already there.
 * - Calling: build `json` with `"method"` and `"param"`, grpc_c_send(), then either grpc_c_recv()
 *   and grpc_end(), or grpc_end() and later grpc_c_resp_direct() for each message that came in.
 *
 * @par Results
 * 0 (or a count) for success, negative for failure; -1 for a missing context, table or resource; a
 * null context is refused everywhere. Diagnostics go to standard output, or where hlog_set_print()
 * leads them.
 *
 * @par Ownership
 * The context owns `json`, `buf` and what grpc_malloc() gave; tables, `userparam` and the bytes to
 * send stay the caller's.
 *
 * @par Threads
 * A context is used by one thread at a time (grpc_lock() helps its owners to see to that). The one
 * exception is its time-out thread, described at grpc_c_send().
 * @{
 */
#ifndef HYBASE_GRPC_H
#define HYBASE_GRPC_H

#include <cjson/cJSON.h>
#include <hybase/export.h>
#include <hyplatform/arch.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Records
 * @{
 */

/**
 * Codes of the protocol: the negative results of grpc_c_recv() and the `"errorcode"` of responses.
 * The first three have the numbers of JSON-RPC 2.0.
 */
enum {
    GRPC_ERR_PARSE = -32700,    /**< the response is no JSON */
    GRPC_ERR_REQUEST = -32600,  /**< the request has no string "method" */
    GRPC_ERR_METHOD = -32601,   /**< nobody serves this method */
    GRPC_ERR_POWER = -32604,    /**< the account's level is above the method's */
    GRPC_ERR_USER = -32605,     /**< no user, an unknown one, or a wrong digest */
    GRPC_ERR_NO_ANSWER = -32010 /**< no matching response */
};

/** Sizes of a context. */
enum {
    GRPC_ACCOUNT_MAX = 32 /**< records in `s_accounts`, of which the last is a scratch record too */
};

/** A context, see the record of this name. */
typedef struct _grpc_t _grpc_t;

/**
 * Hook: sends `data[0..len-1]`; returns the number of bytes sent. Anything but `len` is a failure.
 * On the thread that called the engine.
 */
typedef int32_t (*grpcSendFunc)(_grpc_t* ctx, const char* data, int32_t len);

/**
 * Hook: fills `buf[0..size-1]` with one message and returns its length, 0 or a negative value when
 * nothing came. What `opaque` means is the transport's business: grpc_s_serve() passes null,
 * grpc_c_recv() the address of an int32_t that it sets to 0 once and keeps for all its attempts.
 */
typedef int32_t (*grpcRecvFunc)(_grpc_t* ctx, char* buf, int32_t size, void* opaque);

/**
 * Hook: asked for a name that is not in the account table: writes that user's password,
 * zero-terminated, into `passwd[128]` and returns 0; any other result means that the name is
 * unknown.
 */
typedef int32_t (*grpcGetPasswdFunc)(const char* name, char* passwd);

/** A handler, see grpcMethod_t. Returns 0 for success; a server passes any result on. */
typedef int32_t (*grpcMethodFunc)(_grpc_t* ctx);

/**
 * One row of a method table, which ends with a row whose name is null. The table is its owner's and
 * outlives the context. A row without a handler counts as absent, so a later row of the same name
 * can still match.
 *
 * A server's handler reads "param" from `json`, adds its result as members of the root, and returns
 * 0; or it calls grpc_s_set_error() and returns non-zero (errcode and errmsg are not cleared
 * before). A client's handler is called when the response of its method arrived, and when it is
 * overdue.
 */
typedef struct {
    const char* name;    /**< the word in `"method"`; null ends the table */
    grpcMethodFunc func; /**< its handler, replaced by grpc_set_method() */
    int32_t level;       /**< the highest account level that may call it; 0 is the most powerful */
} grpcMethod_t;

/** An account; both texts are zero-terminated. */
typedef struct {
    char name[32];    /**< the user, at most 31 bytes */
    char passwd[128]; /**< the password, at most 127 bytes */
    int32_t level;    /**< may call methods of this level and above; 0 may call everything */
} grpcAccount_t;

/** Who is at the other end. The engine only stores and returns it. */
typedef struct {
    char addr[48];  /**< address as text, zero-terminated */
    int32_t port;   /**< port, 0 where there is none */
    char proto[16]; /**< name of the transport, "TCP" for packet connections */
} grpcConnInfo_t;

/** A request that waits for its response. */
typedef struct grpcPending_t {
    int64_t sent_time;          /**< microseconds of arch_gettimeofday() */
    char method[64];            /**< cut after 63 characters */
    int32_t sentcnt;            /**< number of the request */
    struct grpcPending_t* next; /**< the next younger one, null for the last */
} grpcPending_t;

/** Tag of the blocks that grpc_malloc() gives. */
#define GRPC_MEM_MAGIC 0xacac5c5cu

/** Stands right before the bytes that grpc_malloc() gives. */
typedef struct grpcMem_t {
    uint32_t magic;         /**< GRPC_MEM_MAGIC */
    int32_t size;           /**< of the whole block, this header included */
    struct grpcMem_t* next; /**< the block given before, null for the first */
} grpcMem_t;

/**
 * The context. Only grpc_new() makes one. The order of its fields is part of the interface: owners
 * and handlers read and write them directly, where nothing else is said.
 */
struct _grpc_t {
    void* userparam;         /**< the owner's pointer, from the configuration */
    int32_t sentcnt;         /**< number of the last request sent; sent as "sentcnt" */
    cJSON* json;             /**< the current message; freed by grpc_end() */
    int32_t errcode;         /**< of the last handler or response */
    char errmsg[256];        /**< always zero-terminated */
    grpcConnInfo_t conn;     /**< only through grpc_set_connection_info() and its sister */
    char* buf;               /**< receive buffer; one spare byte stands behind it */
    int32_t buflen;          /**< its size, 131072 after grpc_init() */
    grpcSendFunc send;       /**< null: nothing is sent */
    grpcRecvFunc recv;       /**< null: nothing can be received */
    grpcMethod_t* c_methods; /**< handlers of responses */
    grpcMethod_t* s_methods; /**< methods served */
    grpcMem_t* mem_list;     /**< blocks of grpc_malloc(), newest first */
    grpcAccount_t c_account; /**< the account this end sends with; none when its name is empty */
    grpcAccount_t s_accounts[GRPC_ACCOUNT_MAX]; /**< accepted; the last also scratch */
    char s_user[32];                            /**< whose digest was accepted last */
    int32_t s_account_cnt;                      /**< how many of s_accounts are in use */
    grpcGetPasswdFunc get_passwd; /**< asked about names that are no account; may be null */
    arch_mutex_t lock;            /**< grpc_lock() creates it when it is first needed */
    const void* send_bin;         /**< goes out behind the next message */
    int32_t send_bin_len;         /**< bytes at `send_bin` */
    void* recv_bin;               /**< see grpc_get_recv_bindata() */
    int32_t recv_bin_len;         /**< bytes at `recv_bin` */
    int32_t timeout_enable;       /**< not 0: there is a time-out thread */
    grpcPending_t* pending;       /**< oldest first; guarded by pending_lock; only to be read */
    arch_mutex_t pending_lock;    /**< null without a time-out thread */
    arch_thread_t timeout_thread; /**< null without one */
    int32_t timeout_running; /**< 1 while the time-out thread is to go on; accessed atomically */
};

/** The configuration. The server's table stands before the client's here. */
typedef struct {
    int32_t timeout_enable;       /**< run a time-out thread, see grpc_c_send() */
    void* userparam;              /**< the owner's pointer, handed on in the context */
    grpcSendFunc send;            /**< transport out; null sends nothing */
    grpcRecvFunc recv;            /**< transport in; null where only the _direct calls are used */
    grpcMethod_t* s_methods;      /**< methods served; may be null */
    grpcMethod_t* c_methods;      /**< handlers of responses; may be null */
    grpcGetPasswdFunc get_passwd; /**< passwords of users without an account record; may be null */
} grpcParam_t;

/** @} */

/**
 * @name Life of a context
 * @{
 */

/** A context of zeros, to be given to grpc_delete(); null when memory is short. */
HYBASE_API _grpc_t* grpc_new(void);

/**
 * Configures the context, starts its time-out thread if that is wanted and allocates the receive
 * buffer. To be called once. A null `param` changes nothing and gives 0. -1 when there is no memory
 * for the buffer (`"malloc failed : <errno>"` is printed).
 */
HYBASE_API int32_t grpc_init(_grpc_t* ctx, const grpcParam_t* param);

/**
 * Ends a message cycle: frees `json` and every block of grpc_malloc(). What a handler of this
 * context allocated that is running on another thread at this moment lives until the next
 * grpc_end().
 */
HYBASE_API void grpc_end(_grpc_t* ctx);

/**
 * Stops the time-out thread and frees the context with all it owns, the pending requests included.
 * Waits for a running time-out handler. Nobody may use the context any more. Returns 0.
 */
HYBASE_API int32_t grpc_delete(_grpc_t* ctx);

/**
 * Binds `handler` to the first row named `name`. -1 without a table, a name or such a row. May be
 * called while other threads use the table.
 */
HYBASE_API int32_t grpc_set_method(grpcMethod_t* table, const char* name, grpcMethodFunc handler);

/**
 * The owners' lock; the engine never takes it. Not recursive. Two threads may come first. When no
 * lock can be created "arch_mutex_create() failed" is printed and nothing is locked.
 */
HYBASE_API void grpc_lock(_grpc_t* ctx);

/** Gives the owners' lock back; does nothing where grpc_lock() never made one. */
HYBASE_API void grpc_unlock(_grpc_t* ctx);

/** Stores who is at the other end. Returns 0, or -1 for a null context. Any thread. */
HYBASE_API int32_t grpc_set_connection_info(_grpc_t* ctx, grpcConnInfo_t info);

/** Who is at the other end: a copy; all zeros for a null context. Any thread. */
HYBASE_API grpcConnInfo_t grpc_get_connection_info(_grpc_t* ctx);
/** @} */

/**
 * @name Messages
 * @{
 */

/**
 * `data[0..len-1]` goes out behind the next message. The bytes must live until that send, which
 * forgets them even when it fails. grpc_end() forgets bytes of grpc_malloc() that were not sent.
 */
HYBASE_API void grpc_set_send_bindata(_grpc_t* ctx, const void* data, int32_t len);

/**
 * The bytes that followed the text of the last message which had some, and in `*len` (unless null)
 * how many. Only to be read while that message is served or its response handled: they lie in the
 * receive buffer or in the text given to the engine, and a later message without binary data leaves
 * pointer and length as they are. So the peers' protocol must tell which messages carry a tail.
 */
HYBASE_API void* grpc_get_recv_bindata(_grpc_t* ctx, int32_t* len);

/**
 * Memory that lives until grpc_end(); there is no single free. Aligned for pointers and 32-bit
 * words. Null for a size of 0 or less, for one too large, and when memory is short.
 */
HYBASE_API void* grpc_malloc(_grpc_t* ctx, int32_t size);

/** As grpc_malloc(), with all bytes 0. */
HYBASE_API void* grpc_zalloc(_grpc_t* ctx, int32_t size);

/** A copy of `text`, as grpc_malloc() gives it; null also for a null text. */
HYBASE_API char* grpc_strdup(_grpc_t* ctx, const char* text);

/**
 * Replaces the receive buffer by one of `len` bytes; its contents are lost. When that fails
 * `"malloc failed : <errno>"` is printed and the context has no buffer: receiving then gives -1.
 */
HYBASE_API void grpc_adjust_buffer_len(_grpc_t* ctx, int32_t len);

/**
 * For handlers that fail: sets errcode and errmsg (255 characters at most; null makes it empty).
 * Returns 0.
 */
HYBASE_API int32_t grpc_s_set_error(_grpc_t* ctx, int32_t code, const char* msg);
/** @} */

/**
 * @name Serving
 * @{
 */

/**
 * Adds a copy of `acc` to the accounts. Once there is one, every method but "account_login" asks
 * for a digest. -1 when 32 are set ("error: too many user setted: 32" is printed).
 *
 * A name that is no account is looked up through `get_passwd` and has level 0 when found. When not,
 * it is checked against an empty password at the level of the last record. That record, index 31,
 * is the scratch space of these look-ups: a 32nd account is overwritten by the first unknown name.
 * Its level is 0 in a fresh context and after a name was found; an owner without `get_passwd` shuts
 * unknown callers out with `s_accounts[31]`.level = INT32_MAX.
 */
HYBASE_API int32_t grpc_s_account_add(_grpc_t* ctx, const grpcAccount_t* acc);

/** Forgets the accounts; their records stay in memory. Returns 0. */
HYBASE_API int32_t grpc_s_account_clear(_grpc_t* ctx);

/**
 * Serves one message: `text[0..len-1]`, where a zero byte ends the JSON text (at `text[len]` at the
 * latest) and binary data may follow. Leaves the response in `json` and sends nothing.
 * Returns the handler's result; -1 for a text that is no JSON (it is printed, there is no
 * response), for a request without method and for an unknown one; GRPC_ERR_USER or GRPC_ERR_POWER
 * for a caller who was refused.
 */
HYBASE_API int32_t grpc_s_serve_without_send(_grpc_t* ctx, const char* text, int32_t len);

/**
 * As grpc_s_serve_without_send(), then sends the response and ends the cycle. Returns the send
 * hook's result, 0 without a hook, -1 when there was nothing to send.
 */
HYBASE_API int32_t grpc_s_serve_direct(_grpc_t* ctx, const char* text, int32_t len);

/**
 * As grpc_s_serve_direct(), for a server that shares one mutex among its contexts: holds `mutex`
 * while it looks up the method and the account (`get_passwd` included) and while the handler runs,
 * and only then. Parsing, the digest, printing and sending do without, so that a long message or a
 * slow reader holds up no other context. The method is looked up again before it is called: an
 * owner that unbinds a handler under `mutex` knows that it does not run any more. A null `mutex` is
 * no lock.
 */
HYBASE_API int32_t grpc_s_serve_locked(_grpc_t* ctx, const char* text, int32_t len,
                                       arch_mutex_t mutex);

/**
 * Receives one message and serves it as grpc_s_serve_direct() does. A receive result below 1 is
 * returned as it is; -1 without a receive hook or a buffer.
 */
HYBASE_API int32_t grpc_s_serve(_grpc_t* ctx);
/** @} */

/**
 * @name Calling
 * @{
 */

/** Sets the account that every message is sent with; an empty name means none. Returns 0. */
HYBASE_API int32_t grpc_c_account_set(_grpc_t* ctx, const grpcAccount_t* acc);

/** The account that messages are sent with: a copy; all zeros for a null context. */
HYBASE_API grpcAccount_t grpc_c_account_get(_grpc_t* ctx);

/**
 * Counts `sentcnt` up (INT32_MAX is followed by INT32_MIN) and sends the request in `json`.
 * Returns the send hook's result (the length is success), 0 without a hook, -1 when `json` is null
 * or memory is short. The tree stays until grpc_end(). A tree is sent once: sent again it keeps the
 * first "sentcnt" and gets a second `"user"`.
 *
 * With `timeout_enable` a request that has no response after 5 seconds is failed within about one
 * more: the method's handler is called with errcode GRPC_ERR_NO_ANSWER and errmsg "Timeout". That
 * happens on the context's time-out thread ("grpcTimeout"), with pending_lock held, so the handler:
 * - must not call grpc_c_send(), grpc_c_resp_direct() or grpc_delete(), nor wait for a lock whose
 *   holder calls them;
 * - finds no message of its own: `json` may be a request that another thread is building.
 *
 * It never runs while a response of the same context is being handled or a request served; a
 * handler must therefore not wait for another response or time-out. A response that comes too late
 * is still delivered.
 */
HYBASE_API int32_t grpc_c_send(_grpc_t* ctx);

/**
 * Waits for the response of the last request sent and leaves it in `json`, its error in `errcode`
 * and `errmsg` (0 and empty without one). Responses of older requests are dropped.
 * Returns 0; the receive hook's result when that is below 1; GRPC_ERR_PARSE for a response that is
 * no JSON; GRPC_ERR_NO_ANSWER after 20 messages that were not the one. Requests stay pending: meant
 * for contexts without a time-out thread.
 */
HYBASE_API int32_t grpc_c_recv(_grpc_t* ctx);

/**
 * Takes one received message, as grpc_s_serve_without_send() does: calls the handler of its method
 * in `c_methods` with the response in `json`, `errcode` and `errmsg`, and ends the cycle. Returns
 * 0, also when there is no handler or it failed (a line is printed); -1 for a text that is no JSON.
 */
HYBASE_API int32_t grpc_c_resp_direct(_grpc_t* ctx, const char* text, int32_t len);
/** @} */

#ifdef __cplusplus
}
#endif

/** @} */

#endif
