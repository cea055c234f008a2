// SPDX-License-Identifier: MIT
// Files go both ways between the service and the public tools sox, ffmpeg and sndfile-convert, for every sample type
// that a tool knows in a container. A tool that is not installed fails the test.
#include "AudioToolbox/AudioConverter.h"
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <cstring>

using namespace qmx::test;

namespace
{

constexpr std::size_t samples = 666; // of two channels
const AudioStreamBasicDescription floats = linear(9, 32, 2);
constexpr AudioFormatID pcm = kAudioFormatLinearPCM, uLaw = kAudioFormatULaw, aLaw = kAudioFormatALaw;

// A value of full eight bits, so that every sample type but the companded ones holds it exactly.
float valueAt(std::size_t index)
{
    return (static_cast<float>(index * 37 % 255) - 127) / 128;
}

ByteBlock converted(const ByteBlock& data, const AudioStreamBasicDescription& from,
                    const AudioStreamBasicDescription& to)
{
    AudioConverterRef converter = nullptr;
    EXPECT_EQ(AudioConverterNew(&from, &to, &converter), noErr);
    ByteBlock result(data.size() / from.mBytesPerFrame * to.mBytesPerFrame);
    auto size = static_cast<UInt32>(result.size());
    EXPECT_EQ(
        AudioConverterConvertBuffer(converter, static_cast<UInt32>(data.size()), data.data(), &size, result.data()),
        noErr);
    EXPECT_EQ(AudioConverterDispose(converter), noErr);
    return result;
}

void expectSignal(const ByteBlock& audio, const AudioStreamBasicDescription& format, bool isExact)
{
    ASSERT_EQ(audio.size(), samples / 2 * format.mBytesPerFrame);
    const ByteBlock data = converted(audio, format, floats);
    for (std::size_t i = 0; i < samples; ++i) {
        float value = 0;
        std::memcpy(&value, &data[i * sizeof value], sizeof value);
        ASSERT_NEAR(value, valueAt(i), isExact ? 1e-6 : 0.04) << "sample " << i;
    }
}

void writeSignal(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& asked)
{
    std::filesystem::remove(path);
    const auto made = createFile(path, type, asked);
    ASSERT_EQ(made.status, noErr) << path;
    ByteBlock data(samples * sizeof(float));
    for (std::size_t i = 0; i < samples; ++i) {
        const float value = valueAt(i);
        std::memcpy(&data[i * sizeof value], &value, sizeof value);
    }
    EXPECT_EQ(writeAudio(made.file, 0, converted(data, floats, formatOf(made.file))), noErr);
    EXPECT_EQ(AudioFileClose(made.file), noErr);
}

void run(const std::string& command, const TemporaryFolder& folder)
{
    const std::string line = "cd " + folder.path("") + " && " + command + " >log 2>&1 </dev/null";
    const int status = std::system(line.c_str());
    const ByteBlock log = contentsOf(folder.path("log"));
    ASSERT_EQ(status, 0) << command << "\n" << std::string(log.begin(), log.end());
}

} // namespace

TEST(AudioFileTools, TheirFilesAreReadRight)
{
    const TemporaryFolder folder;
    writeSignal(folder.path("pcm.wav"), kAudioFileWAVEType, linear(12, 16, 2));
    writeSignal(folder.path("float.wav"), kAudioFileWAVEType, floats); // integers would be scaled to full range
    const std::string sox = "sox -D pcm.wav ", ffmpeg = "ffmpeg -v error -y -i pcm.wav -c:a ",
                      sndfile = "sndfile-convert ";
    const struct {
        std::string command; // NN: the bits
        AudioFormatFlags flags;
        std::vector<UInt32> bits;
        AudioFormatID coding = pcm;
    } files[] = {
        {sox + "-e signed -b NN a.aif", 14, {8, 16, 24, 32}},
        {sox + "-e signed -b NN a.aifc", 14, {8, 16, 24, 32}},
        {sox + "-e floating-point -b NN a.aifc", 11, {32, 64}},
        {sox + "-e unsigned -b NN a.wav", 8, {8}},
        {sox + "-e signed -b NN a.wav", 12, {16, 24, 32}},
        {sox + "-e floating-point -b NN a.wav", 9, {32, 64}},
        {sox + "-e u-law a.wav", 0, {8}, uLaw},
        {sox + "-e a-law a.wav", 0, {8}, aLaw},
        {sox + "-B -e signed -b NN a.wav", 14, {16, 24}},
        {ffmpeg + "pcm_s8 a.aif", 14, {8}},
        {ffmpeg + "pcm_sNNbe a.aif", 14, {16, 24, 32}},
        {ffmpeg + "pcm_sNNle a.aif", 12, {16}},
        {ffmpeg + "pcm_fNNbe a.aif", 11, {32, 64}},
        {ffmpeg + "pcm_mulaw a.aif", 0, {8}, uLaw},
        {ffmpeg + "pcm_alaw a.aif", 0, {8}, aLaw},
        {ffmpeg + "pcm_u8 a.wav", 8, {8}},
        {ffmpeg + "pcm_sNNle a.wav", 12, {16, 24, 32}},
        {ffmpeg + "pcm_fNNle a.wav", 9, {32, 64}},
        {ffmpeg + "pcm_mulaw a.wav", 0, {8}, uLaw},
        {ffmpeg + "pcm_alaw a.wav", 0, {8}, aLaw},
        {ffmpeg + "pcm_sNNle -rf64 always a.wav", 12, {16}},
        {sndfile + "-pcms8 pcm.wav a.aif", 14, {8}},
        {sndfile + "-pcmu8 pcm.wav a.aif", 8, {8}},
        {sndfile + "-pcmNN pcm.wav a.aif", 14, {16, 24, 32}},
        {sndfile + "-pcmNN -endian=little pcm.wav a.aif", 12, {16, 24, 32}},
        {sndfile + "-floatNN float.wav a.aif", 11, {32, 64}},
        {sndfile + "-ulaw pcm.wav a.aif", 0, {8}, uLaw},
        {sndfile + "-alaw pcm.wav a.aif", 0, {8}, aLaw},
        {sndfile + "-pcmu8 pcm.wav a.wav", 8, {8}},
        {sndfile + "-pcmNN pcm.wav a.wav", 12, {16, 24, 32}},
        {sndfile + "-pcmNN pcm.wav a.wavex", 12, {16, 24, 32}},
        {sndfile + "-pcmNN -endian=big pcm.wav a.wav", 14, {16, 24, 32}},
        {sndfile + "-floatNN float.wav a.wav", 9, {32, 64}},
        {sndfile + "-floatNN -endian=big float.wav a.wav", 11, {32, 64}},
        {sndfile + "-floatNN float.wav a.rf64", 9, {32}},
        {sox + "-e signed -b NN a.caf", 14, {8, 16, 24, 32}},
        {sox + "-e signed -b NN a.au", 14, {8, 16, 24, 32}},
        {sox + "-e floating-point -b NN a.au", 11, {32, 64}},
        {sox + "-e u-law a.au", 0, {8}, uLaw},
        {ffmpeg + "pcm_sNNbe a.caf", 14, {16, 24, 32}},
        {ffmpeg + "pcm_sNNle a.caf", 12, {16, 24, 32}},
        {ffmpeg + "pcm_fNNle a.caf", 9, {32, 64}},
        {ffmpeg + "pcm_mulaw a.caf", 0, {8}, uLaw},
        {ffmpeg + "pcm_sNNbe a.au", 14, {16, 24, 32}},
        {ffmpeg + "pcm_alaw a.au", 0, {8}, aLaw},
        {sndfile + "-pcmNN pcm.wav a.caf", 14, {16, 24, 32}},
        {sndfile + "-pcmNN -endian=little pcm.wav a.caf", 12, {16, 24, 32}},
        {sndfile + "-floatNN float.wav a.caf", 11, {32, 64}},
        {sndfile + "-pcmNN pcm.wav a.au", 14, {16, 24, 32}},
        {sndfile + "-pcmNN -endian=little pcm.wav a.au", 12, {16, 24}},
        {sndfile + "-pcmNN pcm.wav a.sd2", 14, {16, 24, 32}},
        {sndfile + "-pcms8 pcm.wav a.sd2", 14, {8}},
        {sndfile + "-ulaw pcm.wav a.wav", 0, {8}, uLaw},
        {sndfile + "-alaw pcm.wav a.wav", 0, {8}, aLaw},
    };
    for (const auto& row : files)
        for (const UInt32 bits : row.bits) {
            const std::string command = replaced(row.command, "NN", std::to_string(bits));
            SCOPED_TRACE(command);
            const std::string path = folder.path(command.substr(command.rfind(' ') + 1));
            std::filesystem::remove(path);
            run(command, folder);
            const auto opened = openFile(path);
            ASSERT_EQ(opened.status, noErr);
            const auto format = formatOf(opened.file);
            EXPECT_EQ(format.mFormatID, row.coding);
            EXPECT_EQ(format.mFormatFlags, row.flags);
            EXPECT_EQ(format.mBitsPerChannel, bits);
            EXPECT_EQ(format.mSampleRate, 44100);
            expectSignal(audioOf(opened.file), format, row.coding == pcm);
            EXPECT_EQ(AudioFileClose(opened.file), noErr);
        }
}

TEST(AudioFileTools, OurFilesAreReadRightByThem)
{
    const TemporaryFolder folder;
    const struct {
        const char* command;
        AudioStreamBasicDescription decoded;
    } tools[] = {
        {"sox -D OURS -t raw -e floating-point -b 32 -L out.raw", floats},
        {"ffmpeg -v error -y -i OURS -f f32le out.raw", floats},
        {"sndfile-convert -pcm32 -endian=little OURS out.raw", linear(12, 32, 2)},
    };
    const struct {
        const char* file;
        AudioFileTypeID type;
        AudioFormatFlags flags;
        std::vector<UInt32> bits;
        std::vector<int> readers; // not all know the rarer types of AIFF-C, padded samples, RIFX, or CAF's floats
        AudioFormatID coding = pcm;
    } files[] = {
        {"our.aif", kAudioFileAIFFType, 14, {8, 16, 20, 24, 32}, {0, 1, 2}},
        {"our.aifc", kAudioFileAIFCType, 14, {8, 16, 24, 32}, {0, 1, 2}},
        {"our.aifc", kAudioFileAIFCType, 12, {16}, {0, 1, 2}},
        {"our.aifc", kAudioFileAIFCType, 12, {24, 32}, {2}},
        {"our.aifc", kAudioFileAIFCType, 8, {8}, {1, 2}},
        {"our.aifc", kAudioFileAIFCType, 11, {32, 64}, {0, 1, 2}},
        {"our.aifc", kAudioFileAIFCType, 0, {8}, {1, 2}, uLaw},
        {"our.aifc", kAudioFileAIFCType, 0, {8}, {1, 2}, aLaw},
        {"our.wav", kAudioFileWAVEType, 8, {8}, {0, 1, 2}},
        {"our.wav", kAudioFileWAVEType, 12, {16, 24, 32}, {0, 1, 2}},
        {"our.wav", kAudioFileWAVEType, 12, {20}, {1, 2}},
        {"our.wav", kAudioFileWAVEType, 9, {32, 64}, {0, 1, 2}},
        {"our.wav", kAudioFileWAVEType, 0, {8}, {0, 1, 2}, uLaw},
        {"our.wav", kAudioFileWAVEType, 0, {8}, {0, 1, 2}, aLaw},
        {"our.caf", kAudioFileCAFType, 14, {8, 16, 24, 32}, {0, 1, 2}},
        {"our.caf", kAudioFileCAFType, 12, {16, 24, 32}, {0, 1, 2}},
        {"our.caf", kAudioFileCAFType, 11, {32, 64}, {1, 2}},
        {"our.caf", kAudioFileCAFType, 9, {32, 64}, {1, 2}},
        {"our.caf", kAudioFileCAFType, 0, {8}, {0, 1, 2}, uLaw},
        {"our.caf", kAudioFileCAFType, 0, {8}, {0, 1, 2}, aLaw},
        {"our.au", kAudioFileNextType, 14, {8, 16, 24, 32}, {0, 1, 2}},
        {"our.au", kAudioFileNextType, 11, {32, 64}, {0, 1, 2}},
        {"our.au", kAudioFileNextType, 0, {8}, {0, 1, 2}, uLaw},
        {"our.sd2", kAudioFileSoundDesigner2Type, 14, {8, 16, 24, 32}, {2}},
        {"our.wav", kAudioFileWAVEType, 14, {16, 24, 32}, {0, 2}},
        {"our.wav", kAudioFileWAVEType, 11, {32, 64}, {0, 2}},
    };
    for (const auto& row : files)
        for (const UInt32 bits : row.bits) {
            auto format = linear(row.flags, bits, 2);
            format.mFormatID = row.coding;
            writeSignal(folder.path(row.file), row.type, format);
            for (const int reader : row.readers) {
                SCOPED_TRACE(testing::Message() << tools[reader].command << " " << row.file << " " << bits);
                std::filesystem::remove(folder.path("out.raw"));
                run(replaced(tools[reader].command, "OURS", row.file), folder);
                expectSignal(contentsOf(folder.path("out.raw")), tools[reader].decoded, row.coding == pcm);
            }
        }
}
