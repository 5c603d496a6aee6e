#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "check.h"
#include "platform.h"

namespace {

// A context between two walls: what it takes beyond its record is noticed.
struct Walled {
    unsigned char before[64];
    utl_md5_ctx_t ctx;
    unsigned char after[64];

    Walled() { memset(static_cast<void*>(this), 0xA5, sizeof *this); }
    void ExpectUntouched() const {
        const auto is_wall = [](unsigned char byte) { return byte == 0xA5; };
        Expect(std::all_of(before, before + sizeof before, is_wall) &&
                   std::all_of(after, after + sizeof after, is_wall),
               "it wrote outside of utl_md5_ctx_t");
    }
};

std::string Finish(Walled* md5) {
    unsigned char digest[16 + 8];
    memset(digest, 0xA5, sizeof digest);
    lib.utl_md5_final(&md5->ctx, digest);
    md5->ExpectUntouched();
    for (size_t i = 16; i < sizeof digest; ++i)
        Expect(digest[i] == 0xA5, "more than 16 bytes of digest were written");
    char hex[33];
    for (int i = 0; i < 16; ++i) snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    return hex;
}

std::string DigestOf(const std::string& text) {
    Walled md5;
    lib.utl_md5_init(&md5.ctx);
    lib.utl_md5_update(&md5.ctx, text.data(), text.size());
    return Finish(&md5);
}

void ExpectDigest(const std::string& got, const char* wanted, const std::string& what) {
    Expect(got == wanted, "%s gave %s, not %s", what.c_str(), got.c_str(), wanted);
}

// Bytes that a mistake in the order of words or blocks does not leave alike.
std::string Pattern(size_t length) {
    std::string text(length, '\0');
    for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>(i * 7 + 3);
    return text;
}

// Digests of Pattern, by another program: around the ends of blocks and of the place for the
// length.
const struct {
    size_t length;
    const char* digest;
} kPatterns[] = {
    {1, "8666683506aacd900bbd5a74ac4edf68"},   {55, "52c0e574e1198de5fe3f8f11440dcb1b"},
    {56, "46c9907fc908ee68b1e7b8e71286a518"},  {57, "1c805dd236c35cab25fcb1bc73802c51"},
    {63, "a62f6d59e837867693f042f5b8f5a236"},  {64, "7160b8fb5e9e4023d549c3971fbaeead"},
    {65, "70bd662e7aefbda85a0f7244167b7897"},  {119, "e84905d4214f4d1ca56c2cdcc152b143"},
    {120, "e3eb5a6c8669ea01a8c185b8abc8a5dc"}, {127, "acce2474d6cc8302120d09c818d17ef7"},
    {128, "10b2da1a82f16d99a81a7203fe9f02cb"}, {129, "03fefbbcebe2959cf2270241aafe0250"},
    {200, "4c79b81ac94bad7a875519ce6b964c66"},
};
constexpr char kEmptyDigest[] = "d41d8cd98f00b204e9800998ecf8427e";

// 512 MiB and a byte: the count of bits needs more than 32 of them.
void MoreThan32BitsOfLength() {
    constexpr size_t kPiece = 1024 * 1024;
    const std::vector<unsigned char> zeros(kPiece);
    Walled md5;
    lib.utl_md5_init(&md5.ctx);
    for (int i = 0; i < 512; ++i) lib.utl_md5_update(&md5.ctx, zeros.data(), kPiece);
    lib.utl_md5_update(&md5.ctx, zeros.data(), 1);
    ExpectDigest(Finish(&md5), "ea3b62c6b93cb3625a1fd76777985f5a", "536870913 zero bytes");
}

}  // namespace

void check_utl_md5_init() {
    Walled first, second;
    lib.utl_md5_init(&first.ctx);
    first.ExpectUntouched();
    lib.utl_md5_update(&first.ctx, "left over", 9);
    lib.utl_md5_init(&first.ctx);
    ExpectDigest(Finish(&first), kEmptyDigest, "a context that was initialised again");
    lib.utl_md5_init(&first.ctx);
    ExpectDigest(Finish(&first), kEmptyDigest, "a context that was used before");

    lib.utl_md5_init(&first.ctx);
    lib.utl_md5_update(&first.ctx, "ab", 2);
    lib.utl_md5_init(&second.ctx);
    lib.utl_md5_update(&second.ctx, "message ", 8);
    lib.utl_md5_update(&first.ctx, "c", 1);
    lib.utl_md5_update(&second.ctx, "digest", 6);
    ExpectDigest(Finish(&first), "900150983cd24fb0d6963f7d28e17f72", "one of two contexts");
    ExpectDigest(Finish(&second), "f96b697d7cb7938d525a2f31aaf161d0", "one of two contexts");
}

void check_utl_md5_update() {
    for (const auto& pattern : kPatterns) {
        const std::string text = Pattern(pattern.length);
        for (size_t split = 0; split <= text.size(); ++split) {
            const GuardedCopy head(text.data(), split), tail(&text[split], text.size() - split);
            Walled md5;
            lib.utl_md5_init(&md5.ctx);
            lib.utl_md5_update(&md5.ctx, head.data(), split);
            lib.utl_md5_update(&md5.ctx, tail.data(), text.size() - split);
            ExpectDigest(
                Finish(&md5), pattern.digest,
                std::to_string(split) + " and " + std::to_string(text.size() - split) + " bytes");
        }
    }
    Doing("no bytes at all");
    Walled md5;
    lib.utl_md5_init(&md5.ctx);
    lib.utl_md5_update(&md5.ctx, nullptr, 0);
    for (char letter : std::string("abc")) {
        lib.utl_md5_update(&md5.ctx, &letter, 1);
        lib.utl_md5_update(&md5.ctx, "", 0);
    }
    ExpectDigest(Finish(&md5), "900150983cd24fb0d6963f7d28e17f72", "\"abc\" letter by letter");
    Doing("long inputs");
    ExpectDigest(DigestOf(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21",
                 "a million times \"a\"");
    if (settings.slow) MoreThan32BitsOfLength();
}

// The test suite of RFC 1321, appendix A.5, and inputs around the ends of blocks.
void check_utl_md5_final() {
    const struct {
        const char* text;
        const char* digest;
    } cases[] = {
        {"", kEmptyDigest},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& c : cases)
        ExpectDigest(DigestOf(c.text), c.digest, std::string("\"") + c.text + "\"");
    for (const auto& pattern : kPatterns)
        ExpectDigest(DigestOf(Pattern(pattern.length)), pattern.digest,
                     std::to_string(pattern.length) + " bytes");
}
