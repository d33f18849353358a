#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "card/sinks/Sink.h"
#include "platform/Files.h"
#include "platform/Log.h"
#include "platform/MessageBox.h"
#include "platform/RuntimeFailure.h"

namespace Tolvar::Testing {

/// What Run throws; "" when it does not.
inline std::string FailureOf(const auto& Run) {
    try {
        Run();
    } catch (const std::exception& Failed) {
        return Failed.what();
    }
    return "";
}

struct ListLog : Log {
    std::vector<std::string> Lines;
    void Write(std::string_view Line) noexcept override { Lines.emplace_back(Line); }
};

struct ListBox : MessageBox {
    std::vector<std::string> Texts;
    void Show(std::string_view Text) override { Texts.emplace_back(Text); }
};

/// Counts calls of any kind, and says which of them fail.
struct FaultPlan {
    int FailAtCall = 0;    ///< counted from 1; 0: none
    bool ForGood = false;  ///< and so do all that follow
    int Calls = 0;

    bool NextFails() const { return Refused(Calls + 1); }
    bool Fails() { return Refused(++Calls); }

  private:
    bool Refused(int Call) const {
        return FailAtCall != 0 && (Call == FailAtCall || (ForGood && Call > FailAtCall));
    }
};

/// A file system in memory that counts what is open and can refuse the n-th call. What it refuses
/// to read, to write or to close has been done by half. A file in use after its close fails the
/// test.
class MemoryFiles : public Files, public FaultPlan {
  public:
    using Bytes = std::vector<std::uint8_t>;
    std::map<std::string, Bytes> Content;
    int OpenNow = 0;
    int OpensSoFar = 0;
    std::string ReadOnly;  ///< the file that is opened for reading alone

    std::unique_ptr<File> Open(const std::string& Name, FileAccess Access) override {
        Count("open", Name);
        if (Access != FileAccess::Write && !Content.contains(Name)) Refuse("open", Name);
        if (Access != FileAccess::Read && Name == ReadOnly) Refuse("write", Name);
        if (Access == FileAccess::Write) Content.try_emplace(Name);
        ++OpensSoFar;
        return std::make_unique<Handle>(*this, Name);
    }
    std::unique_ptr<File> CreateNew(const std::string& Name) override {
        Count("create", Name);
        if (!Content.try_emplace(Name).second) return nullptr;
        return std::make_unique<Handle>(*this, Name);
    }
    bool Exists(const std::string& Name) override {
        Count("look for", Name);
        return Content.contains(Name);
    }
    bool SameFile(const std::string& One, const std::string& Other) override {
        return One == Other;
    }
    void Delete(const std::string& Name) override {
        Count("delete", Name);
        Content.erase(Name);
    }

    void Put16(const std::string& Name, std::span<const std::int16_t> Samples) {
        Bytes Raw(Samples.size_bytes());
        std::memcpy(Raw.data(), Samples.data(), Raw.size());
        Content[Name] = Raw;
    }

  private:
    class Handle : public File {
      public:
        Handle(MemoryFiles& From, std::string Name) : Owner_(From), Name_(std::move(Name)) {
            ++Owner_.OpenNow;
        }
        ~Handle() override {
            --Owner_.OpenNow;
            // A close that nobody looks at can fail all the same.
            if (!IsClosed_ && !Written_.second.empty() && Owner_.Fails()) Lose();
        }
        void ReadAt(std::int64_t BytePos, std::span<std::byte> Into) override {
            if (Owner_.NextFails()) Take(BytePos, Into.first(Into.size() / 2));
            Reach("read");
            Take(BytePos, Into);
        }
        void WriteAt(std::int64_t BytePos, std::span<const std::byte> From) override {
            if (Owner_.NextFails()) Put(BytePos, From.first(From.size() / 2));
            Reach("write");
            Written_ = {BytePos, Put(BytePos, From)};
        }
        std::int64_t Length() override { return std::ssize(Reach("measure")); }
        void SetLength(std::int64_t Bytes) override {
            Reach("cut").resize(static_cast<std::size_t>(Bytes));
        }
        void Close() override {
            if (std::exchange(IsClosed_, true)) throw std::logic_error(Name_ + " is closed");
            if (!Owner_.Fails()) return;
            Lose();
            Refuse("close", Name_);
        }

      private:
        void Take(std::int64_t BytePos, std::span<std::byte> Into) const {
            const Bytes& Raw = Owner_.Content[Name_];
            const auto End = BytePos - 1 + std::ssize(Into);
            if (BytePos < 1 || End > std::ssize(Raw)) Refuse("read", Name_);
            std::memcpy(Into.data(), Raw.data() + (BytePos - 1), Into.size());
        }
        void Lose() {
            Put(Written_.first, std::span(Written_.second).first(Written_.second.size() / 2));
        }
        // What lay there before.
        std::vector<std::byte> Put(std::int64_t BytePos, std::span<const std::byte> From) {
            Bytes& Raw = Owner_.Content[Name_];
            const auto Start = static_cast<std::size_t>(BytePos - 1);
            Raw.resize(std::max(Raw.size(), Start + From.size()));
            const auto Place = std::as_writable_bytes(std::span(Raw)).subspan(Start, From.size());
            std::vector<std::byte> Old(Place.begin(), Place.end());
            std::ranges::copy(From, Place.begin());
            return Old;
        }
        Bytes& Reach(const std::string& What) {
            if (IsClosed_) throw std::logic_error(Name_ + " is closed");
            Owner_.Count(What, Name_);
            return Owner_.Content[Name_];
        }

        MemoryFiles& Owner_;
        std::string Name_;
        std::pair<std::int64_t, std::vector<std::byte>> Written_{1, {}};
        bool IsClosed_ = false;
    };

    [[noreturn]] static void Refuse(const std::string& What, const std::string& Name) {
        throw RuntimeFailure(FailureKind::File, "cannot " + What + " " + Name);
    }
    void Count(const std::string& What, const std::string& Name) {
        if (Fails()) Refuse(What, Name);
    }
};

/// Keeps what is heard. Polices the protocol: a frame before Open, or after Finish, throws.
struct ListeningSink : Sink {
    std::vector<std::int16_t> Heard;
    int Channels = 0;
    int RateHz = 0;
    bool Finished = false;

    bool WantsFrames() const override { return true; }
    void Open(int ChannelCount, int Rate) override {
        if (Channels != 0) throw std::logic_error("sink opened twice");
        Channels = ChannelCount;
        RateHz = Rate;
    }
    void Write(std::span<const std::int16_t> Samples) override {
        if (Channels == 0 || Finished || Samples.size() % static_cast<std::size_t>(Channels) != 0) {
            throw std::logic_error("sink written out of turn");
        }
        Heard.insert(Heard.end(), Samples.begin(), Samples.end());
    }
    void Finish() override { Finished = true; }
};

}  // namespace Tolvar::Testing
