#include "stream/Interleave.h"

#include <cstddef>
#include <cstring>
#include <span>

#include "platform/Checked.h"

namespace Tolvar {
namespace {

// Everything that varies is fixed at compile time, so that each loop becomes vector code. A sample
// is stored as a word, or as a byte that counts from 128.

using Word = std::int16_t;
using Byte = std::uint8_t;

template <bool EightBits>
Word SampleOf(Word Stored) {
    return EightBits ? static_cast<Word>(Stored * 256) : Stored;
}

template <bool EightBits>
Word SampleOf(Byte Stored) {
    return SampleOf<EightBits>(static_cast<Word>(Stored - 128));
}

template <bool EightBits, class Stored>
void PlaceEach(std::span<const Stored> From, Word* Stream) {
    for (std::size_t K = 0; K < From.size(); ++K)
        Stream[K] = SampleOf<EightBits>(From[K]);
}

template <bool EightBits>
void PlaceBoth(std::span<const Word> Left, std::span<const Word> Right, Word* Stream) {
    for (std::size_t K = 0; K < Left.size(); ++K) {
        Stream[2 * K] = SampleOf<EightBits>(Left[K]);
        Stream[2 * K + 1] = SampleOf<EightBits>(Right[K]);
    }
}

// What the compiler makes no good code of is written in vectors of its own, on whatever machine.
using Words [[gnu::vector_size(16)]] = Word;
constexpr std::size_t Step = 8;

Words EightAt(const void* From) {
    Words Eight;
    std::memcpy(&Eight, From, sizeof Eight);
    return Eight;
}

template <bool EightBits>
Words EightOf(const Word* From) {
    return EightBits ? EightAt(From) * 256 : EightAt(From);
}

template <bool EightBits>
void PlaceForward(std::span<const Byte> From, Word* Stream) {
    PlaceEach<EightBits>(From, Stream);
}

// Not memmove, which can take three times as long where a block and the stream lie askew.
template <bool EightBits>
void PlaceForward(std::span<const Word> From, Word* Stream) {
    std::size_t At = 0;
    for (; At + Step <= From.size(); At += Step) {
        const Words Eight = EightOf<EightBits>(&From[At]);
        std::memcpy(Stream + At, &Eight, sizeof Eight);
    }
    PlaceEach<EightBits>(From.subspan(At), Stream + At);
}

// Reversed, the channels are read forward all the same, which is what the processor fetches ahead
// for. Frames are of Channels samples.

/// Eight pairs of a sample of L and one of R, the last pair first.
void PlacePairsReversed(Words L, Words R, Word* Stream) {
    const Words Early = __builtin_shufflevector(L, R, 7, 15, 6, 14, 5, 13, 4, 12);
    const Words Late = __builtin_shufflevector(L, R, 3, 11, 2, 10, 1, 9, 0, 8);
    std::memcpy(Stream, &Early, sizeof Early);
    std::memcpy(Stream + Step, &Late, sizeof Late);
}

template <std::size_t Channels>
Words Reversed(Words Eight) {
    Eight = __builtin_shufflevector(Eight, Eight, 6, 7, 4, 5, 2, 3, 0, 1);
    if (Channels == 2) return Eight;
    // In halves: of both at once the processor's oldest instructions make many.
    Eight = __builtin_shufflevector(Eight, Eight, 1, 0, 3, 2, 4, 5, 6, 7);
    return __builtin_shufflevector(Eight, Eight, 0, 1, 2, 3, 5, 4, 7, 6);
}

template <std::size_t Channels, bool EightBits, class Stored>
void PlaceEachReversed(std::span<const Stored> From, Word* Stream) {
    for (; !From.empty(); From = From.subspan(Channels))
        PlaceEach<EightBits>(From.first(Channels), Stream + From.size() - Channels);
}

template <std::size_t Channels, bool EightBits>
void PlaceReversed(std::span<const Word> From, Word* Stream) {
    std::size_t At = 0;
    Word* End = Stream + From.size();
    for (; At + Step <= From.size(); At += Step) {
        const Words Eight = Reversed<Channels>(EightOf<EightBits>(&From[At]));
        End -= Step;
        std::memcpy(End, &Eight, sizeof Eight);
    }
    PlaceEachReversed<Channels, EightBits>(From.subspan(At), Stream);
}

template <std::size_t Channels, bool EightBits>
void PlaceReversed(std::span<const Byte> From, Word* Stream) {
    std::size_t At = 0;
    Word* End = Stream + From.size();
    for (; At + 2 * Step <= From.size(); At += 2 * Step) {
        // Two samples in a word, each with its sign: the even one is the low byte.
        const Words Two = EightAt(&From[At]) ^ static_cast<Word>(0x8080);
        const Words Even = EightBits ? Two << 8 : Two << 8 >> 8;
        const Words Odd = EightBits ? Two & static_cast<Word>(0xFF00) : Two >> 8;
        End -= 2 * Step;
        Channels == 1 ? PlacePairsReversed(Odd, Even, End) : PlacePairsReversed(Even, Odd, End);
    }
    PlaceEachReversed<Channels, EightBits>(From.subspan(At), Stream);
}

template <bool EightBits>
void PlaceBothReversed(std::span<const Word> Left, std::span<const Word> Right, Word* Stream) {
    std::size_t At = 0;
    Word* End = Stream + 2 * Left.size();
    for (; At + Step <= Left.size(); At += Step) {
        End -= 2 * Step;
        PlacePairsReversed(EightOf<EightBits>(&Left[At]), EightOf<EightBits>(&Right[At]), End);
    }
    for (; At < Left.size(); ++At) {
        End -= 2;
        PlaceBoth<EightBits>(Left.subspan(At, 1), Right.subspan(At, 1), End);
    }
}

/// Of frames, all left samples are judged before the right ones.
void CheckEightBits(std::span<const Word> From, std::size_t Channels = 1) {
    std::uint16_t Bits = 0;  // that any sample has when it is counted from -128; 16 to be quick
    for (const Word Sample : From)
        Bits = static_cast<std::uint16_t>(Bits | static_cast<std::uint16_t>(Sample + 128));
    if (Bits < 256) return;
    for (std::size_t Channel = 0; Channel < Channels; ++Channel) {
        for (std::size_t K = Channel; K < From.size(); K += Channels)
            static_cast<void>(Checked<Word>(std::int64_t{From[K]} * 256));
    }
}

void CheckEightBits(std::span<const Byte>, std::size_t) {}  // they have no more

/// Samples that lie as they are played forward: those of one channel, or frames.
template <std::size_t Channels, class Stored>
void Place(std::span<const Stored> From, SegmentOrder Order, Word* Stream) {
    if (Order.EightBits) {
        CheckEightBits(From, Channels);
        Order.Reverse ? PlaceReversed<Channels, true>(From, Stream)
                      : PlaceForward<true>(From, Stream);
    } else {
        Order.Reverse ? PlaceReversed<Channels, false>(From, Stream)
                      : PlaceForward<false>(From, Stream);
    }
}

void Place(std::span<const Word> Left, std::span<const Word> Right, SegmentOrder Order,
           Word* Stream) {
    if (Order.EightBits) {
        CheckEightBits(Left);
        CheckEightBits(Right);
        Order.Reverse ? PlaceBothReversed<true>(Left, Right, Stream)
                      : PlaceBoth<true>(Left, Right, Stream);
    } else {
        Order.Reverse ? PlaceBothReversed<false>(Left, Right, Stream)
                      : PlaceBoth<false>(Left, Right, Stream);
    }
}

template <class Stored>
std::span<const Stored> StoredAt(const std::byte* From, std::int64_t Count) {
    return {reinterpret_cast<const Stored*>(From), static_cast<std::size_t>(Count)};
}

template <std::size_t Channels>
void PlaceAsItLies(const SampleRun& Run, SegmentOrder Order, Word* Stream) {
    const std::int64_t Count = Run.Count * std::int64_t{Channels};
    Run.Layout.Bits == 8 ? Place<Channels>(StoredAt<Byte>(Run.From, Count), Order, Stream)
                         : Place<Channels>(StoredAt<Word>(Run.From, Count), Order, Stream);
}

constexpr Word Silence[RunWalk::PieceLen] = {};

/// The run's samples one behind the other: where they lie, or made in Room.
std::span<const Word> WordsOf(const SampleRun& Run, Word* Room) {
    const auto Count = static_cast<std::size_t>(Run.Count);
    if (Run.From == nullptr) return {Silence, Count};
    if (Run.Layout.IsPlain()) return StoredAt<Word>(Run.From, Run.Count);
    SamplesFromFile(Run.Layout, Run.From, {Room, Count});
    return {Room, Count};
}

/// Right's samples lie beside Left's, in whole frames of one file.
bool AreFrames(const SampleRun& Left, const SampleRun& Right) {
    return Left.From != nullptr && Left.Layout.Channels == 2 && Left.Layout == Right.Layout &&
           Right.From == Left.From + Left.Layout.Bits / 8;
}

}  // namespace

void Interleave(const SampleRun& Left, SegmentOrder Order, std::int16_t* Stream) {
    if (Left.From != nullptr && Left.Layout.Channels == 1) {
        PlaceAsItLies<1>(Left, Order, Stream);
    } else {
        Word Room[RunWalk::PieceLen];
        Place<1>(WordsOf(Left, Room), Order, Stream);
    }
}

void Interleave(const SampleRun& Left, const SampleRun& Right, SegmentOrder Order,
                std::int16_t* Stream) {
    if (AreFrames(Left, Right)) {
        PlaceAsItLies<2>(Left, Order, Stream);
    } else {
        Word LeftRoom[RunWalk::PieceLen];
        Word RightRoom[RunWalk::PieceLen];
        Place(WordsOf(Left, LeftRoom), WordsOf(Right, RightRoom), Order, Stream);
    }
}

}  // namespace Tolvar
