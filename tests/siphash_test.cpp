// The hash of the INI index, on the authors' test vectors and on values of another implementation.
#include "../hybase/hcutil/siphash.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

struct Vector {
    size_t length;
    uint64_t hash;
};

// The hash of so many bytes 00 01 02 ... Each text ends at its buffer's end, for the sanitizer.
template <class Hash>
void Check(const typename Hash::Key& key, std::initializer_list<Vector> vectors) {
    for (const Vector& vector : vectors) {
        std::string bytes;
        while (bytes.size() < vector.length) bytes += static_cast<char>(bytes.size());
        const std::unique_ptr<char[]> exact(new char[bytes.size()]);
        bytes.copy(exact.get(), bytes.size());
        EXPECT_EQ(Hash::Of(key, {exact.get(), bytes.size()}), vector.hash) << vector.length;
    }
}

TEST(SipHash, GivesThePublishedValuesWithTwoAndFourRounds) {
    Check<SipHash<2, 4>>({0x0706050403020100, 0x0f0e0d0c0b0a0908}, {{0, 0x726fdb47dd0e0e31},
                                                                    {1, 0x74f839c593dc67fd},
                                                                    {2, 0x0d6c8009d9a94f5a},
                                                                    {3, 0x85676696d7fb7e2d},
                                                                    {4, 0xcf2794e0277187b7},
                                                                    {5, 0x18765564cd99a68d},
                                                                    {6, 0xcbc9466e58fee3ce},
                                                                    {7, 0xab0200f58b01d137},
                                                                    {8, 0x93f5f5799a932462},
                                                                    {15, 0xa129ca6149be45e5}});
}

TEST(SipHash, GivesTheValuesOfPythonWithOneAndThreeRounds) {
    Check<SipHash<1, 3>>({0, 0}, {{1, 0x68a914128e01e473},
                                  {3, 0x4d4c9a4a8ef6e0ad},
                                  {4, 0x7cc43f98813e4dbd},
                                  {7, 0x2f098ab0c751325a},
                                  {8, 0xead411e67ebe2eea},
                                  {9, 0x75927f9d95124362},
                                  {12, 0xa6baf4fb0f9fe1c2},
                                  {13, 0xa0cf3211850f8e0d},
                                  {20, 0x639e355ae68c0100},
                                  {40, 0x95bc321ab41d8206}});
}

}  // namespace
