#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tolvar::Testing {

/// A folder of its own for one test, removed with everything in it.
class TempFolder {
  public:
    TempFolder() {
        std::string Name = std::filesystem::temp_directory_path() / "tolvar-test-XXXXXX";
        if (mkdtemp(Name.data()) == nullptr) throw std::runtime_error("cannot make " + Name);
        Path_ = Name;
    }
    ~TempFolder() {
        std::error_code Ignored;
        std::filesystem::remove_all(Path_, Ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string operator/(const std::string& Name) const { return (Path_ / Name).string(); }

    /// The names in it, sorted.
    std::vector<std::string> Names() const {
        std::vector<std::string> Found;
        for (const auto& Each : std::filesystem::directory_iterator(Path_))
            Found.push_back(Each.path().filename().string());
        std::sort(Found.begin(), Found.end());
        return Found;
    }

  private:
    std::filesystem::path Path_;
};

inline void Put(const std::string& Path, const std::string& Content) {
    std::ofstream(Path, std::ios::binary) << Content;
}

inline std::string Get(const std::string& Path) {
    std::ifstream In(Path, std::ios::binary);
    return {std::istreambuf_iterator<char>(In), {}};
}

}  // namespace Tolvar::Testing
