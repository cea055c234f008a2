// SPDX-License-Identifier: MIT
#include "support/TrackExport.h"

#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string_view>

namespace example
{
namespace
{

namespace fs = std::filesystem;

/// Makes a title a part of a file name that every usual file system accepts.
std::string safeName(const std::string& title)
{
    constexpr std::string_view unsafe = R"(/\:*?"<>|)";
    constexpr std::size_t longest = 120; // bytes
    std::string name;
    for (const char c : title)
        name +=
            static_cast<unsigned char>(c) < ' ' || c == '\x7f' || unsafe.find(c) != std::string_view::npos ? '-' : c;
    if (name.size() > longest) {
        std::size_t end = longest;
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) // inside a character
            --end;
        name.resize(end);
    }
    while (name.ends_with(' ') || name.ends_with('.'))
        name.pop_back();
    return name;
}

std::string fileName(std::size_t number, std::size_t count, const std::string& title, const std::string& extension)
{
    const std::size_t digits = std::max<std::size_t>(2, std::to_string(count).size());
    std::string name = std::to_string(number);
    name.insert(0, digits - std::min(digits, name.size()), '0');
    if (const std::string safe = safeName(title); !safe.empty())
        name.append(" ").append(safe);
    return name + extension;
}

/// The files to make, none of which exists yet.
std::vector<std::string> pathsFor(const std::vector<qmx::Track>& tracks, const std::string& folder,
                                  const std::string& extension)
{
    std::error_code error;
    fs::create_directory(folder, error);
    if (error || !fs::is_directory(folder, error))
        throw Failure{"cannot write to " + folder + ": " + (error ? error.message() : "not a folder")};
    std::vector<std::string> paths;
    for (const qmx::Track& track : tracks) {
        paths.push_back(fs::path(folder) / fileName(paths.size() + 1, tracks.size(), track.title, extension));
        if (fs::exists(paths.back(), error))
            throw Failure{paths.back() + ": exists"};
    }
    return paths;
}

} // namespace

TrackExport::TrackExport(const CommandLine& line) : folder_(line.text("--export").value_or(""))
{
    const auto code = line.text("--type");
    if (code && folder_.empty())
        throw Failure{"--type needs --export", 2};
    if (!code)
        return;
    const auto wish = qmx::Format::forTypeCode(*code);
    if (!wish)
        throw Failure{wish.error().text(), 2};
    wish_ = *wish;
}

void TrackExport::write(const std::string& recording, const std::vector<qmx::Track>& tracks) const
{
    if (folder_.empty())
        return;
    const qmx::FrameReader reader = valueOf(qmx::FrameReader::open(recording));
    for (const qmx::Track& track : tracks)
        if (track.first < 0 || track.end < track.first || track.end > reader.length())
            throw Failure{recording + ": the track " + track.title + " lies outside of it"};
    const bool isCompressed = reader.format().stream.mBytesPerFrame == 0; // packets cannot be cut at any frame
    const qmx::Format wish = wish_.value_or(isCompressed ? qmx::Format::wave() : reader.format());
    const qmx::Format format = valueOf(wish.completedFrom(reader.format()));
    const auto paths = pathsFor(tracks, folder_, format.extension());
    ProgressBar bar;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const auto show = [&](float done) {
            bar.show("exporting", (static_cast<double>(i) + done) / static_cast<double>(tracks.size()));
            return !isInterrupted();
        };
        valueOf(qmx::convert(recording, paths[i], format,
                             {.progress = show, .range = {tracks[i].first, tracks[i].end}, .keepTracks = false}));
    }
    bar.wipe();
    if (isCompressed && !wish_)
        std::fprintf(stderr, "Exported as WAVE files of %u bits (--type chooses another)\n",
                     format.stream.mBitsPerChannel);
}

} // namespace example
