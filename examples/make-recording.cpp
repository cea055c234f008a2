// SPDX-License-Identifier: MIT
// Makes a recording for experiments: three pieces of music with low line noise between them, as an AIFF file of 16
// bits, stereo, 44100 Hz.
#include "support/CommandLine.h"
#include "support/Failure.h"
#include "support/Synthesizer.h"

#include <QMXCoreAudio/FileRelated/QMXAudioFile.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace
{

using example::Failure;

constexpr const char* help = R"(usage: make-recording [--minutes N] FILE

Writes three pieces of music with pauses between them to the new AIFF file FILE, again and
again until the recording is N minutes long (default: once).
)";

/// The samples as the file stores them.
std::vector<Byte> fileBytes(const example::StereoSamples& samples)
{
    std::vector<Byte> bytes;
    bytes.reserve(2 * samples.size());
    for (const float sample : samples) {
        const auto value = static_cast<SInt16>(std::lround(std::clamp(sample, -1.0F, 1.0F) * 32767));
        bytes.push_back(static_cast<Byte>(value >> 8));
        bytes.push_back(static_cast<Byte>(value));
    }
    return bytes;
}

std::vector<Byte> threePieces()
{
    example::StereoSamples recording = example::lineNoise(1.2);
    const auto pieces = example::synthesizedPieces();
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        recording.insert(recording.end(), pieces[i].begin(), pieces[i].end());
        const auto pause = example::lineNoise(i + 1 < pieces.size() ? 2.5 : 1.4);
        recording.insert(recording.end(), pause.begin(), pause.end());
    }
    return fileBytes(recording);
}

void writeRepeated(QMXAudioFile& file, const std::vector<Byte>& recording, UInt64 byteCount)
{
    constexpr std::size_t atOnce = std::size_t{1} << 20;
    std::size_t position = 0;
    for (UInt64 left = byteCount; left > 0;) {
        auto size = static_cast<UInt32>(std::min<UInt64>({atOnce, recording.size() - position, left}));
        if (!file.write_length(recording.data() + position, &size) || size == 0)
            throw Failure{file.lastError()};
        left -= size;
        position = (position + size) % recording.size();
    }
}

int makeRecording(int argumentCount, char** arguments)
{
    const example::CommandLine line(argumentCount, arguments, {"--minutes"});
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    if (line.plainArguments().size() != 1)
        throw Failure{"which file? (--help tells more)", 2};
    const std::string& path = line.plainArguments()[0];
    constexpr double longest = 400; // minutes that fit into an AIFF file
    const auto minutes = line.number("--minutes", 0, longest);
    if (std::filesystem::exists(path))
        throw Failure{path + ": exists already"};

    const auto recording = threePieces();
    const auto format = QMXAudioStreamBasicDescription::defaultStandardFileFormat();
    const auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::write);
    file->setUseCache(true);
    if (!file->setFileStreamFormat(*format) || !file->create())
        throw Failure{file->lastError()};
    const auto frames = static_cast<UInt64>(minutes.value_or(0) * 60 * format->sampleRate());
    writeRepeated(*file, recording, minutes ? frames * format->bytesPerFrame() : recording.size());
    if (!file->close())
        throw Failure{file->lastError()};
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("make-recording", makeRecording, argumentCount, arguments);
}
