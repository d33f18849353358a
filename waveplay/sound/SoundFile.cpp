#include "waveplay/sound/SoundFile.h"

#include <algorithm>
#include <array>
#include <vector>

#include "waveplay/sound/MpegLength.h"
#include "waveplay/sound/RiffChunks.h"

namespace Tolvar {
namespace {

constexpr std::int64_t SkippedAtOnce = 4096;

// Kinds in which every sample stands for itself, so that a seek lands in the very same samples.
bool SeeksExactly(int Format) {
    constexpr std::array Plain{SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16,
                               SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_FLOAT,
                               SF_FORMAT_DOUBLE, SF_FORMAT_ULAW,   SF_FORMAT_ALAW};
    return std::find(Plain.begin(), Plain.end(), Format & SF_FORMAT_SUBMASK) != Plain.end();
}

}  // namespace

SoundFile::SoundFile(const std::string& Path) : Bytes_(Path) {
    RequireForwardLists(Bytes_);
    Open();
    const bool IsMpeg = (Info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
    const auto Uncounted = IsMpeg ? BytesOfUncountedMpeg(Bytes_) : std::nullopt;
    if (Uncounted) {
        Bytes_.HideLength(*Uncounted);
        Open();
    }
    constexpr std::int64_t Unknown = SF_COUNT_MAX;
    if (Uncounted || Info_.frames == Unknown) CountFrames();
}

void SoundFile::Open() {
    Sound_.reset();
    Info_ = {};
    Sound_.reset(Bytes_.Open(Info_));
    Bytes_.RequireRead();
    if (Sound_) return;
    // Kinds without a header are known by the ends of their names, which only sf_open sees.
    if (SNDFILE* const ByName = sf_open(Path().c_str(), SFM_READ, &Info_)) {
        sf_close(ByName);
        Sound_.reset(Bytes_.Open(Info_));
        Bytes_.RequireRead();
    }
    if (Sound_) return;
    throw RuntimeFailure(FailureKind::Input,
                         Path() + ": not a sound file that can be read: " + sf_strerror(nullptr));
}

bool SoundFile::BeyondSixteenBits() const {
    constexpr std::array Fine{
        SF_FORMAT_PCM_24,         SF_FORMAT_PCM_32,       SF_FORMAT_FLOAT,
        SF_FORMAT_DOUBLE,         SF_FORMAT_DWVW_24,      SF_FORMAT_VORBIS,
        SF_FORMAT_OPUS,           SF_FORMAT_ALAC_20,      SF_FORMAT_ALAC_24,
        SF_FORMAT_ALAC_32,        SF_FORMAT_MPEG_LAYER_I, SF_FORMAT_MPEG_LAYER_II,
        SF_FORMAT_MPEG_LAYER_III,
    };
    return std::find(Fine.begin(), Fine.end(), Info_.format & SF_FORMAT_SUBMASK) != Fine.end();
}

int SoundFile::PlainWavBits() const {
    const int Kind = Info_.format & SF_FORMAT_TYPEMASK;
    if (Kind != SF_FORMAT_WAV && Kind != SF_FORMAT_WAVEX && Kind != SF_FORMAT_RF64) return 0;
    const int Coding = Info_.format & SF_FORMAT_SUBMASK;
    if (Coding == SF_FORMAT_PCM_U8) return 8;
    const bool Swapped =
        sf_command(Sound_.get(), SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_TRUE;
    return Coding == SF_FORMAT_PCM_16 && !Swapped ? 16 : 0;
}

std::size_t SoundFile::Read(std::span<double> Into) {
    const auto Wanted = static_cast<sf_count_t>(Into.size()) / Channels();
    const sf_count_t Got = sf_readf_double(Sound_.get(), Into.data(), Wanted);
    Bytes_.RequireRead();
    if (Got < Wanted && IsCutShort(Got)) Fail("decode");
    Next_ += Got;
    return static_cast<std::size_t>(Got);
}

// Whether what ended the reading was something else than the file's end.
bool SoundFile::IsCutShort(std::int64_t Got) const {
    if (Bytes_.Spent()) return !Bytes_.IsHidden() && sf_error(Sound_.get()) != SF_ERR_NO_ERROR;
    // Of a FLAC decoder that gave up, as without memory, libsndfile does not tell.
    const bool IsFlac = (Info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC;
    return sf_error(Sound_.get()) != SF_ERR_NO_ERROR || (IsFlac && Next_ + Got < Frames());
}

void SoundFile::GoTo(std::int64_t Frame) {
    const bool Exact = SeeksExactly(Info_.format);
    if (Exact || Frame < Next_) {
        const std::int64_t Target = Exact ? Frame : 0;
        if (Target != Next_ && sf_seek(Sound_.get(), Target, SEEK_SET) != Target) {
            Bytes_.RequireRead();
            Fail("seek in");
        }
        Next_ = Target;
    }
    ReadOver(Frame - Next_);
}

void SoundFile::CountFrames() {
    Info_.frames = 0;
    ReadOver(SF_COUNT_MAX);
    Info_.frames = Next_;
    GoTo(0);
}

void SoundFile::ReadOver(std::int64_t Frames) {
    std::vector<double> Unheard(static_cast<std::size_t>(SkippedAtOnce * Channels()));
    for (std::int64_t Got = 1; Frames > 0 && Got > 0; Frames -= Got) {
        const std::int64_t Wanted = std::min(SkippedAtOnce, Frames);
        Got = static_cast<std::int64_t>(
            Read(std::span(Unheard).first(static_cast<std::size_t>(Wanted * Channels()))));
    }
}

void SoundFile::Fail(const std::string& What) {
    const bool Says = sf_error(Sound_.get()) != SF_ERR_NO_ERROR;
    throw RuntimeFailure(
        FailureKind::File,
        "cannot " + What + " " + Path() + " behind frame " + std::to_string(Next_) + ": " +
            (Says ? sf_strerror(Sound_.get()) : "the decoder stopped and did not say why"));
}

}  // namespace Tolvar
