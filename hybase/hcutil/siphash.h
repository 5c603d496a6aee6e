// SipHash (Aumasson, Bernstein 2012): a hash of bytes that nobody can find collisions of without
// its key. With 1 and 3 rounds it is what hash tables want; the published one has 2 and 4.
#ifndef HYBASE_HCUTIL_SIPHASH_H
#define HYBASE_HCUTIL_SIPHASH_H

#include <endian.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

template <int kBlockRounds, int kFinalRounds>
class SipHash {
  public:
    struct Key {
        uint64_t low, high;
    };

    static uint64_t Of(const Key& key, std::string_view bytes) {
        SipHash state(key);
        const char* at = bytes.data();
        const size_t rest = bytes.size() % 8;
        const char* const end = at + (bytes.size() - rest);
        for (; at < end; at += 8) state.Take(Load<uint64_t>(at));
        state.Take(uint64_t{bytes.size()} << 56 | Rest(at, rest, bytes.size() >= 8));
        state.v2_ ^= 0xff;
        state.Rounds<kFinalRounds>();
        return state.v0_ ^ state.v1_ ^ state.v2_ ^ state.v3_;
    }

  private:
    explicit SipHash(const Key& key)
        : v0_(key.low ^ 0x736f6d6570736575),
          v1_(key.high ^ 0x646f72616e646f6d),
          v2_(key.low ^ 0x6c7967656e657261),
          v3_(key.high ^ 0x7465646279746573) {}

    void Take(uint64_t block) {
        v3_ ^= block;
        Rounds<kBlockRounds>();
        v0_ ^= block;
    }

    template <int kCount>
    void Rounds() {
        for (int i = 0; i < kCount; i++) {
            v0_ += v1_;
            v2_ += v3_;
            v1_ = Rotate(v1_, 13) ^ v0_;
            v3_ = Rotate(v3_, 16) ^ v2_;
            v0_ = Rotate(v0_, 32) + v3_;
            v2_ += v1_;
            v3_ = Rotate(v3_, 21) ^ v0_;
            v1_ = Rotate(v1_, 17) ^ v2_;
            v2_ = Rotate(v2_, 32);
        }
    }

    static uint64_t Rotate(uint64_t word, int bits) { return word << bits | word >> (64 - bits); }

    static uint64_t FromLittleEndian(uint64_t word) { return le64toh(word); }
    static uint32_t FromLittleEndian(uint32_t word) { return le32toh(word); }

    template <typename Word>
    static Word Load(const char* from) {
        Word word;
        memcpy(&word, from, sizeof word);
        return FromLittleEndian(word);
    }

    // The last `count` bytes, fewer than eight. Read together with the bytes before them where
    // there are some, and otherwise in pieces that overlap: byte by byte would take half of a short
    // key's time.
    static uint64_t Rest(const char* at, size_t count, bool block_before) {
        if (count == 0) return 0;
        if (block_before) return Load<uint64_t>(at + count - 8) >> (64 - 8 * count);
        if (count >= 4) {
            const uint64_t last = Load<uint32_t>(at + count - 4);
            return Load<uint32_t>(at) | last << (8 * (count - 4));
        }
        const auto byte = [at](size_t i) { return uint64_t{static_cast<unsigned char>(at[i])}; };
        return byte(0) | byte(count / 2) << (8 * (count / 2)) |
               byte(count - 1) << (8 * (count - 1));
    }

    uint64_t v0_, v1_, v2_, v3_;
};

#endif
