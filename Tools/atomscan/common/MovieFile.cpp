#include "common/MovieFile.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "common/Text.h"

namespace atomscan_tool {

std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.string();
}

OpenedMovie OpenMovieFile(const std::string& path)
{
    OpenedMovie opened;
    opened.absolutePath = AbsolutePath(path);
    opened.code = QT::MakeParser()->OpenMovie(ToString16(path), opened.movie);
    if (opened.code != QT::kResultSuccess) opened.movie = {};
    return opened;
}

std::string OpenFailureText(QT::ResultCode code)
{
    switch (code) {
    case QT::kResultCannotOpen: return "cannot open the file";
    case QT::kResultNotAMovie: return "not a movie that can be read";
    default: return "cannot open the movie (" + CodeText(code) + ")";
    }
}

std::optional<std::vector<std::uint8_t>> ReadFileRange(const std::string& path, std::uint64_t offset,
                                                       std::uint64_t size)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
    if (!file) return std::nullopt;
    std::error_code error;
    const std::uint64_t fileSize = std::filesystem::file_size(path, error);
    if (error || offset > fileSize || size > fileSize - offset) return std::nullopt;
    if (::fseeko(file.get(), static_cast<off_t>(offset), SEEK_SET) != 0) return std::nullopt;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    if (size != 0 && std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) return std::nullopt;
    return bytes;
}

} // namespace atomscan_tool
