// SPDX-License-Identifier: MIT
#include "support/TrackTexts.h"

#include "support/Failure.h"

#include <QMXCoreAudio/Foundation/Text/Format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

namespace example
{

std::map<std::size_t, std::string> titlesFrom(const std::vector<std::string>& texts)
{
    std::map<std::size_t, std::string> titles;
    for (const std::string& text : texts) {
        std::size_t number = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error != std::errc{} || number == 0 || stop == end || *stop != '=')
            throw Failure{"--title takes a track's number, = and its title, not '" + text + "'", 2};
        titles[number] = std::string(stop + 1, end);
    }
    return titles;
}

std::shared_ptr<qmx::Image> readCover(const std::string& path)
{
    using namespace std::string_view_literals;
    constexpr std::uintmax_t largest = 524'000;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error)
        throw Failure{path + ": " + error.message()};
    if (size > largest)
        throw Failure{path + ": larger than half a megabyte, which is all that is kept in a recording"};
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    constexpr std::array beginnings{"\xff\xd8\xff"sv, "\x89PNG"sv, "GIF8"sv, "BM"sv, "II*\0"sv, "MM\0*"sv};
    if (std::ranges::none_of(beginnings, [&](std::string_view start) { return bytes.starts_with(start); }))
        throw Failure{path + ": not a picture (JPEG, PNG, GIF, BMP or TIFF)"};
    return qmx::Image::initWithData({bytes.begin(), bytes.end()});
}

std::string trackLines(const std::vector<qmx::Track>& tracks)
{
    std::string lines;
    for (const qmx::Track& track : tracks)
        lines += qmx::format("%qi\t%qi\t%@\n", track.first, track.end, track.title);
    return lines;
}

std::string historyLines(const QMXTrackAndProcessingInfo& record)
{
    std::string lines;
    if (const auto& ranges = record.processingInfos())
        for (const auto& range : *ranges) {
            lines += qmx::format("%qu\t%qu\t%@", range->processingStartFrame(), range->processingEndFrame(),
                                 range->processName());
            for (const auto& [name, value] : range->processingSettings()->entries())
                lines += qmx::format("\t%@=%@", name, value);
            lines += '\n';
        }
    return lines;
}

} // namespace example
