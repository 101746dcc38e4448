#include "player/Keys.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velorine {
namespace {

std::vector<Key> keysOf(const std::string& bytes) {
    KeyDecoder decoder;
    std::vector<Key> keys;
    for (const char byte : bytes)
        if (const auto key = decoder.feed(byte)) keys.push_back(*key);
    return keys;
}

using Keys = std::vector<Key>;

TEST(KeyDecoder, LettersAndSigns) {
    EXPECT_EQ(keysOf("npq +-"),
              (Keys{Key::next, Key::previous, Key::quit, Key::pause, Key::louder, Key::softer}));
    EXPECT_EQ(keysOf("NPQ=_"),
              (Keys{Key::next, Key::previous, Key::quit, Key::louder, Key::softer}));
}

TEST(KeyDecoder, CursorKeysInBothModesOfATerminal) {
    EXPECT_EQ(keysOf("\033[C\033[D"), (Keys{Key::forward, Key::back}));
    EXPECT_EQ(keysOf("\033OC\033OD"), (Keys{Key::forward, Key::back}));
}

TEST(KeyDecoder, OtherSequencesArePassedOverWhole) {
    // Up, F5, a mouse report: none of their letters is a key.
    EXPECT_EQ(keysOf("\033[A\033[15~\033[<0;10;5mn"), Keys{Key::next});
}

TEST(KeyDecoder, EscapeKeyAloneMeansNothing) {
    EXPECT_EQ(keysOf("\033n"), Keys{Key::next});
    EXPECT_EQ(keysOf("\033\033[C"), Keys{Key::forward});
}

TEST(KeyDecoder, OtherBytesMeanNothing) {
    EXPECT_EQ(keysOf("xyz123\r\n\t\xc3\xa4"), Keys{});
}

} // namespace
} // namespace velorine
