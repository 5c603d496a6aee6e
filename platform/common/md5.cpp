#include <md5.h>

#include "hyplatform/utl_md5.h"

static_assert(sizeof(MD5_CTX) <= sizeof(utl_md5_ctx_t) &&
                  alignof(MD5_CTX) <= alignof(utl_md5_ctx_t),
              "the public record must hold libmd's context");

static MD5_CTX* Inner(utl_md5_ctx_t* ctx) { return reinterpret_cast<MD5_CTX*>(ctx); }

void utl_md5_init(utl_md5_ctx_t* ctx) { MD5Init(Inner(ctx)); }

void utl_md5_update(utl_md5_ctx_t* ctx, const void* data, size_t len) {
    MD5Update(Inner(ctx), static_cast<const uint8_t*>(data), len);
}

void utl_md5_final(utl_md5_ctx_t* ctx, unsigned char digest[16]) { MD5Final(digest, Inner(ctx)); }
