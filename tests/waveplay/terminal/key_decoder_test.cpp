#include <gtest/gtest.h>
#include <utf8.h>

#include <string>
#include <utility>

#include "waveplay/terminal/KeyDecoder.h"

namespace Tolvar::Testing {
namespace {

std::string Names(const std::vector<Key>& Keys) {
    std::string Text;
    for (const Key& Each : Keys) {
        if (Each.Is == Key::Name::Character) {
            utf8::append(Each.Character, Text);
        } else {
            Text += "-<>^v{}bE"[static_cast<int>(Each.Is)];
        }
    }
    return Text;
}

TEST(KeyDecoder, DecodesWhereverTheBytesAreCut) {
    const std::pair<std::string, std::string> Table[] = {
        {"q 1?", "q 1?"},
        {"\x1b[A\x1b[B\x1b[C\x1b[D", "^v><"},
        {"\x1bOA\x1bOB\x1bOC\x1bOD", "^v><"},
        {"\x1b[H\x1b[F\x1bOH\x1bOF\x1b[1~\x1b[4~\x1b[7~\x1b[8~", "{}{}{}{}"},
        {"\x1b[1;5C\x1b[1;2Ax", ">^x"},
        {"\x7f\x08", "bb"},
        {"\x1b[3~\x1b[5~\x1b[15~\x1b[200~\x1bOPq", "q"},  // delete, page up, F5, paste, F1
        {"\x1bqk", "k"},                                  // Alt-q is not q
        {"\x1b\x1b[Ck", "E>k"},
        {"é€😀", "é€😀"},
        {"\xc3(\xff\x80\xed\xa0\x80x", "(x"},  // broken UTF-8 and a surrogate
        {"\x1b[1\x1b[D", "<"},                 // a sequence that is broken off by the next
    };
    for (const auto& [Bytes, Keys] : Table) {
        for (std::size_t Cut = 0; Cut <= Bytes.size(); ++Cut) {
            KeyDecoder Decoder;
            std::string Got = Names(Decoder.Feed(Bytes.substr(0, Cut)));
            Got += Names(Decoder.Feed(Bytes.substr(Cut)));
            EXPECT_EQ(Got, Keys) << Bytes.substr(1) << " cut at " << Cut;
            EXPECT_FALSE(Decoder.Waiting());
        }
    }
}

TEST(KeyDecoder, WhatIsBegunIsAKeyOrGivenUpOnceNothingFollows) {
    KeyDecoder Decoder;
    EXPECT_EQ(Names(Decoder.Feed("k\x1b")), "k");
    EXPECT_TRUE(Decoder.Waiting());
    EXPECT_EQ(Names(Decoder.Flush()), "E");
    EXPECT_EQ(Names(Decoder.Feed("\x1b[1")), "");
    EXPECT_EQ(Names(Decoder.Flush()), "") << "half a sequence is no key";
    EXPECT_EQ(Names(Decoder.Feed("~k")), "~k");
    Decoder.Feed("\x1b[" + std::string(100, '1'));
    EXPECT_EQ(Names(Decoder.Feed("q")), "q") << "a sequence without end";
}

}  // namespace
}  // namespace Tolvar::Testing
