/**
 * @file
 * @ingroup utl_md5
 * MD5 (RFC 1321), for the digests of RPC accounts.
 */

/**
 * @addtogroup utl_md5
 * MD5 (RFC 1321), for the digests of RPC accounts.
 *
 *     utl_md5_ctx_t ctx;
 *     unsigned char digest[16];
 *     utl_md5_init(&ctx);
 *     utl_md5_update(&ctx, text, strlen(text));
 *     utl_md5_final(&ctx, digest);
 *
 * Nothing here fails, and pointers must not be null, but for data of length 0.
 *
 * @par Threads
 * One thread a context; contexts are independent of each other.
 * @{
 */
#ifndef HYPLATFORM_UTL_MD5_H
#define HYPLATFORM_UTL_MD5_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A digest in the making. Its owner puts it where he likes; nothing needs to be freed. */
typedef struct {
    uint64_t opaque[16]; /**< the state of the digest so far */
} utl_md5_ctx_t;

/** Begins a digest, or begins anew. */
__attribute__((visibility("default"))) void utl_md5_init(utl_md5_ctx_t* ctx);

/** Adds `data[0..len-1]`; may be called any number of times, also with len 0. */
__attribute__((visibility("default"))) void utl_md5_update(utl_md5_ctx_t* ctx, const void* data,
                                                           size_t len);

/** Writes the digest's 16 bytes. The context must be initialised again before its next use. */
__attribute__((visibility("default"))) void utl_md5_final(utl_md5_ctx_t* ctx,
                                                          unsigned char digest[16]);

#ifdef __cplusplus
}
#endif

/** @} */

#endif
