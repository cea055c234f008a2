// SPDX-License-Identifier: MIT
// Files go both ways between the service and the public tools sox, ffmpeg and sndfile-convert, for every sample type that a tool
// knows in a container. A tool that is not installed fails the test.
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/TemporaryFolder.h"

#include <bit>
#include <cmath>
#include <cstdlib>

using namespace qmx::test;

namespace
{

constexpr std::size_t frames = 333; // of two channels

// A value of full eight bits, so that every sample type but the companded ones holds it exactly.
double valueAt(std::size_t index)
{
    return (static_cast<double>(index * 37 % 255) - 127) / 128;
}

double expanded(std::uint8_t byte, bool isALaw)
{
    const std::uint8_t code = isALaw ? byte ^ 0x55 : static_cast<std::uint8_t>(~byte);
    const int segment = (code >> 4) & 7;
    const int step = code & 15;
    const int magnitude = isALaw ? (segment == 0 ? step * 16 + 8 : (step * 16 + 264) << (segment - 1))
                                 : ((step * 8 + 132) << segment) - 132;
    const bool isNegative = isALaw ? (code & 0x80) == 0 : (code & 0x80) != 0;
    return (isNegative ? -magnitude : magnitude) / 32768.0;
}

double floating(std::uint64_t bits, UInt32 size)
{
    if (size == 8)
        return std::bit_cast<double>(bits);
    return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
}

// The sample at `data`, from -1 to 1.
double decoded(const std::uint8_t* data, const AudioStreamBasicDescription& format)
{
    if (format.mFormatID != kAudioFormatLinearPCM)
        return expanded(*data, format.mFormatID == kAudioFormatALaw);
    const UInt32 size = format.mBytesPerFrame / format.mChannelsPerFrame;
    std::uint64_t bits = 0;
    for (UInt32 i = 0; i < size; ++i)
        bits = bits << 8 | data[(format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0 ? i : size - 1 - i];
    if ((format.mFormatFlags & kAudioFormatFlagIsFloat) != 0)
        return floating(bits, size);
    const double half = std::ldexp(1, static_cast<int>(size * 8 - 1));
    const auto value = static_cast<double>(bits);
    if ((format.mFormatFlags & kAudioFormatFlagIsSignedInteger) == 0)
        return (value - half) / half;
    return value >= half ? (value - 2 * half) / half : value / half;
}

// The sample's bytes; companded ones by looking for the nearest.
void encode(double value, const AudioStreamBasicDescription& format, std::uint8_t* data)
{
    if (format.mFormatID != kAudioFormatLinearPCM) {
        int best = 0;
        for (int code = 0; code < 256; ++code) {
            const auto error = [&](int c) {
                return std::abs(expanded(static_cast<std::uint8_t>(c), format.mFormatID == kAudioFormatALaw) - value);
            };
            best = error(code) < error(best) ? code : best;
        }
        *data = static_cast<std::uint8_t>(best);
        return;
    }
    const UInt32 size = format.mBytesPerFrame / format.mChannelsPerFrame;
    const double half = std::ldexp(1, static_cast<int>(size * 8 - 1));
    const bool isSigned = (format.mFormatFlags & kAudioFormatFlagIsSignedInteger) != 0;
    auto bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(value * half + (isSigned ? 0 : half)));
    if ((format.mFormatFlags & kAudioFormatFlagIsFloat) != 0)
        bits =
            size == 8 ? std::bit_cast<std::uint64_t>(value) : std::bit_cast<std::uint32_t>(static_cast<float>(value));
    for (UInt32 i = 0; i < size; ++i, bits >>= 8)
        data[(format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0 ? size - 1 - i : i] =
            static_cast<std::uint8_t>(bits);
}

void expectSignal(const ByteBlock& audio, const AudioStreamBasicDescription& format, double tolerance)
{
    const UInt32 size = format.mBytesPerFrame / format.mChannelsPerFrame;
    ASSERT_EQ(audio.size(), frames * 2 * size);
    for (std::size_t i = 0; i < frames * 2; ++i)
        ASSERT_NEAR(decoded(&audio[i * size], format), valueAt(i), tolerance) << "sample " << i;
}

void writeSignal(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& asked)
{
    std::filesystem::remove(path);
    const auto made = createFile(path, type, asked);
    ASSERT_EQ(made.status, noErr) << path;
    const auto format = formatOf(made.file);
    const UInt32 size = format.mBytesPerFrame / 2;
    ByteBlock audio(frames * 2 * size);
    for (std::size_t i = 0; i < frames * 2; ++i)
        encode(valueAt(i), format, &audio[i * size]);
    EXPECT_EQ(writeAudio(made.file, 0, audio), noErr);
    EXPECT_EQ(AudioFileClose(made.file), noErr);
}

void run(const std::string& command, const TemporaryFolder& folder)
{
    const std::string log = folder.path("log");
    const int status =
        std::system(("cd " + folder.path("") + " && " + command + " >" + log + " 2>&1 </dev/null").c_str());
    const ByteBlock text = contentsOf(log);
    ASSERT_EQ(status, 0) << command << "\n" << std::string(text.begin(), text.end());
}

double toleranceOf(const AudioStreamBasicDescription& format)
{
    return format.mFormatID == kAudioFormatLinearPCM ? 1e-6 : 0.04;
}

} // namespace

TEST(AudioFileTools, TheirFilesAreReadRight)
{
    const TemporaryFolder folder;
    writeSignal(folder.path("source.wav"), kAudioFileWAVEType, linear(12, 16, 2));
    writeSignal(folder.path("float.wav"), kAudioFileWAVEType,
                linear(9, 32, 2)); // integers would be scaled to full range
    const std::string sox = "sox -D source.wav ", ffmpeg = "ffmpeg -v error -i source.wav -c:a ",
                      sndfile = "sndfile-convert ";
    const struct {
        std::string command;
        const char* file;
        AudioFormatFlags flags;
        UInt32 bits;
        AudioFormatID coding = kAudioFormatLinearPCM;
    } files[] = {
        {sox + "-e signed -b 8 ", "a.aif", 14, 8},
        {sox + "-e signed -b 8 ", "a.aifc", 14, 8},
        {sox + "-e signed -b 16 ", "a.aif", 14, 16},
        {sox + "-e signed -b 16 ", "a.aifc", 14, 16},
        {sox + "-e signed -b 24 ", "a.aif", 14, 24},
        {sox + "-e signed -b 24 ", "a.aifc", 14, 24},
        {sox + "-e signed -b 32 ", "a.aif", 14, 32},
        {sox + "-e signed -b 32 ", "a.aifc", 14, 32},
        {sox + "-e floating-point -b 32 ", "b.aifc", 11, 32},
        {sox + "-e floating-point -b 64 ", "b.aifc", 11, 64},
        {sox + "-e unsigned -b 8 ", "a.wav", 8, 8},
        {sox + "-e signed -b 16 ", "a.wav", 12, 16},
        {sox + "-e signed -b 24 ", "a.wav", 12, 24},
        {sox + "-e signed -b 32 ", "a.wav", 12, 32},
        {sox + "-e floating-point -b 32 ", "a.wav", 9, 32},
        {sox + "-e floating-point -b 64 ", "a.wav", 9, 64},
        {sox + "-e u-law -b 8 ", "u.wav", 0, 8, kAudioFormatULaw},
        {sox + "-e a-law -b 8 ", "u.wav", 0, 8, kAudioFormatALaw},
        {sox + "-B -e signed -b 16 ", "x.wav", 14, 16},
        {ffmpeg + "pcm_s8 ", "f.aif", 14, 8},
        {ffmpeg + "pcm_s16be ", "f.aif", 14, 16},
        {ffmpeg + "pcm_s24be ", "f.aif", 14, 24},
        {ffmpeg + "pcm_s32be ", "f.aif", 14, 32},
        {ffmpeg + "pcm_f32be ", "f.aif", 11, 32},
        {ffmpeg + "pcm_f64be ", "f.aif", 11, 64},
        {ffmpeg + "pcm_s16le ", "f.aif", 12, 16},
        {ffmpeg + "pcm_alaw ", "f.aif", 0, 8, kAudioFormatALaw},
        {ffmpeg + "pcm_mulaw ", "f.aif", 0, 8, kAudioFormatULaw},
        {ffmpeg + "pcm_u8 ", "f.wav", 8, 8},
        {ffmpeg + "pcm_s16le ", "f.wav", 12, 16},
        {ffmpeg + "pcm_s24le ", "f.wav", 12, 24},
        {ffmpeg + "pcm_s32le ", "f.wav", 12, 32},
        {ffmpeg + "pcm_f32le ", "f.wav", 9, 32},
        {ffmpeg + "pcm_f64le ", "f.wav", 9, 64},
        {ffmpeg + "pcm_alaw ", "f.wav", 0, 8, kAudioFormatALaw},
        {ffmpeg + "pcm_mulaw ", "f.wav", 0, 8, kAudioFormatULaw},
        {ffmpeg + "pcm_s16le -rf64 always ", "g.wav", 12, 16},
        {sndfile + "-pcms8 source.wav ", "s.aif", 14, 8},
        {sndfile + "-pcm16 source.wav ", "s.aif", 14, 16},
        {sndfile + "-pcm24 source.wav ", "s.aif", 14, 24},
        {sndfile + "-pcm32 source.wav ", "s.aif", 14, 32},
        {sndfile + "-pcm16 -endian=little source.wav ", "l.aif", 12, 16},
        {sndfile + "-pcm16 source.wav ", "s.wav", 12, 16},
        {sndfile + "-pcm16 -endian=big source.wav ", "x.wav", 14, 16},
        {sndfile + "-pcm16 source.wav ", "s.wavex", 12, 16},
        {sndfile + "-pcm24 -endian=little source.wav ", "l.aif", 12, 24},
        {sndfile + "-pcm24 source.wav ", "s.wav", 12, 24},
        {sndfile + "-pcm24 -endian=big source.wav ", "x.wav", 14, 24},
        {sndfile + "-pcm24 source.wav ", "s.wavex", 12, 24},
        {sndfile + "-pcm32 -endian=little source.wav ", "l.aif", 12, 32},
        {sndfile + "-pcm32 source.wav ", "s.wav", 12, 32},
        {sndfile + "-pcm32 -endian=big source.wav ", "x.wav", 14, 32},
        {sndfile + "-pcm32 source.wav ", "s.wavex", 12, 32},
        {sndfile + "-pcmu8 source.wav ", "s.aif", 8, 8},
        {sndfile + "-pcmu8 source.wav ", "s.wav", 8, 8},
        {sndfile + "-float32 float.wav ", "s.aif", 11, 32},
        {sndfile + "-float64 float.wav ", "s.aif", 11, 64},
        {sndfile + "-float32 float.wav ", "s.wav", 9, 32},
        {sndfile + "-float64 float.wav ", "s.wav", 9, 64},
        {sndfile + "-float32 -endian=big float.wav ", "x.wav", 11, 32},
        {sndfile + "-float32 float.wav ", "s.rf64", 9, 32},
        {sndfile + "-ulaw source.wav ", "s.aif", 0, 8, kAudioFormatULaw},
        {sndfile + "-ulaw source.wav ", "s.wav", 0, 8, kAudioFormatULaw},
        {sndfile + "-alaw source.wav ", "s.aif", 0, 8, kAudioFormatALaw},
        {sndfile + "-alaw source.wav ", "s.wav", 0, 8, kAudioFormatALaw},
    };
    for (const auto& row : files) {
        SCOPED_TRACE(row.command + row.file);
        const std::string path = folder.path(row.file);
        std::filesystem::remove(path);
        run(row.command + row.file, folder);
        const auto opened = openFile(path);
        ASSERT_EQ(opened.status, noErr);
        const auto format = formatOf(opened.file);
        EXPECT_EQ(format.mFormatID, row.coding);
        EXPECT_EQ(format.mFormatFlags, row.flags);
        EXPECT_EQ(format.mBitsPerChannel, row.bits);
        EXPECT_EQ(format.mSampleRate, 44100);
        expectSignal(audioOf(opened.file), format, toleranceOf(format));
        AudioFileClose(opened.file);
    }
}

TEST(AudioFileTools, OurFilesAreReadRightByThem)
{
    const TemporaryFolder folder;
    const auto at44100 = [](AudioStreamBasicDescription format) {
        format.mSampleRate = 44100;
        return format;
    };
    // some readers know neither the rarer types of AIFF-C nor RIFX
    enum : unsigned { sox = 1, ffmpeg = 2, sndfile = 4, all = 7 };
    const struct {
        AudioFileTypeID type;
        const char* file;
        AudioStreamBasicDescription format;
        unsigned readers;
    } files[] = {
        {kAudioFileAIFFType, "our.aif", linear(14, 8, 2), all},
        {kAudioFileAIFFType, "our.aif", linear(14, 16, 2), all},
        {kAudioFileAIFFType, "our.aif", linear(14, 24, 2), all},
        {kAudioFileAIFFType, "our.aif", linear(14, 32, 2), all},
        {kAudioFileAIFFType, "our.aif", linear(14, 20, 2), all},
        {kAudioFileAIFCType, "our.aifc", linear(14, 8, 2), all},
        {kAudioFileAIFCType, "our.aifc", linear(14, 16, 2), all},
        {kAudioFileAIFCType, "our.aifc", linear(14, 24, 2), all},
        {kAudioFileAIFCType, "our.aifc", linear(14, 32, 2), all},
        {kAudioFileAIFCType, "our.aifc", linear(12, 16, 2), all},
        {kAudioFileAIFCType, "our.aifc", linear(12, 24, 2), sndfile},
        {kAudioFileAIFCType, "our.aifc", linear(12, 32, 2), sndfile},
        {kAudioFileAIFCType, "our.aifc", linear(8, 8, 2), ffmpeg | sndfile},
        {kAudioFileAIFCType, "our.aifc", linear(11, 32, 2), all},
        {kAudioFileAIFCType, "our.aifc", linear(11, 64, 2), all},
        {kAudioFileAIFCType, "our.aifc", at44100(companded(kAudioFormatULaw, 2)), ffmpeg | sndfile},
        {kAudioFileAIFCType, "our.aifc", at44100(companded(kAudioFormatALaw, 2)), ffmpeg | sndfile},
        {kAudioFileWAVEType, "our.wav", linear(8, 8, 2), all},
        {kAudioFileWAVEType, "our.wav", linear(12, 16, 2), all},
        {kAudioFileWAVEType, "our.wav", linear(12, 24, 2), all},
        {kAudioFileWAVEType, "our.wav", linear(12, 32, 2), all},
        {kAudioFileWAVEType, "our.wav", linear(12, 20, 2), ffmpeg | sndfile},
        {kAudioFileWAVEType, "our.wav", linear(9, 32, 2), all},
        {kAudioFileWAVEType, "our.wav", linear(9, 64, 2), all},
        {kAudioFileWAVEType, "our.wav", at44100(companded(kAudioFormatULaw, 2)), all},
        {kAudioFileWAVEType, "our.wav", at44100(companded(kAudioFormatALaw, 2)), all},
        {kAudioFileWAVEType, "our.wav", linear(14, 16, 2), sox | sndfile},
        {kAudioFileWAVEType, "our.wav", linear(14, 24, 2), sox | sndfile},
        {kAudioFileWAVEType, "our.wav", linear(14, 32, 2), sox | sndfile},
        {kAudioFileWAVEType, "our.wav", linear(11, 32, 2), sox | sndfile},
    };
    const struct {
        unsigned bit;
        const char* before;
        const char* after;
        AudioStreamBasicDescription decoded;
    } tools[] = {
        {sox, "sox -D ", " -t raw -e floating-point -b 32 -L decoded.raw", linear(9, 32, 2)},
        {ffmpeg, "ffmpeg -v error -y -i ", " -f f32le decoded.raw", linear(9, 32, 2)},
        {sndfile, "sndfile-convert -pcm32 -endian=little ", " decoded.raw", linear(12, 32, 2)},
    };
    for (const auto& row : files) {
        writeSignal(folder.path(row.file), row.type, row.format);
        for (const auto& tool : tools) {
            if ((row.readers & tool.bit) == 0)
                continue;
            SCOPED_TRACE(tool.before + std::string(row.file));
            std::filesystem::remove(folder.path("decoded.raw"));
            run(std::string(tool.before) + row.file + tool.after, folder);
            expectSignal(contentsOf(folder.path("decoded.raw")), tool.decoded, toleranceOf(row.format));
        }
    }
}
