// SPDX-License-Identifier: MIT
// Files go both ways between the service and the public tools sox, ffmpeg and sndfile-convert, for every sample type
// that a tool knows in a container. A tool that is not installed fails the test.
#include "platform/AudioToolbox/AudioFileHelpers.h"
#include "platform/AudioToolbox/Conversion/Conversions.h"
#include "support/TemporaryFolder.h"

#include <map>

using namespace qmx::test;

namespace
{

constexpr std::size_t samples = 666; // of two channels
const AudioStreamBasicDescription floats = linear(9, 32, 2);
constexpr AudioFormatID lpcm = kAudioFormatLinearPCM, uLaw = kAudioFormatULaw, aLaw = kAudioFormatALaw;

// A value of full eight bits, so that every sample type but the companded ones holds it exactly.
float valueAt(std::size_t index)
{
    return (static_cast<float>(index * 37 % 255) - 127) / 128;
}

void expectSignal(const ByteBlock& audio, const AudioStreamBasicDescription& format, bool isExact)
{
    ASSERT_EQ(audio.size(), samples / 2 * format.mBytesPerFrame);
    const auto values = converted<float>(format, floats, audio);
    for (std::size_t i = 0; i < samples; ++i)
        ASSERT_NEAR(values.at(i), valueAt(i), isExact ? 1e-6 : 0.04) << "sample " << i;
}

void writeSignal(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& asked)
{
    std::filesystem::remove(path);
    const Opened made(createFile(path, type, asked));
    ASSERT_EQ(made.status, noErr) << path;
    std::vector<float> values;
    for (std::size_t i = 0; i < samples; ++i)
        values.push_back(valueAt(i));
    EXPECT_EQ(writeAudio(made.file, 0, converted<UInt8>(floats, formatOf(made.file), values)), noErr);
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
        std::vector<std::string> files;
        AudioFormatFlags flags;
        std::vector<UInt32> bits;
        AudioFormatID coding = lpcm;
    } rows[] = {
        {sox + "-e signed -b NN", {"a.aif", "a.aifc", "a.caf", "a.au"}, 14, {8, 16, 24, 32}},
        {sox + "-e signed -b NN", {"a.wav"}, 12, {16, 24, 32}},
        {sox + "-e unsigned -b NN", {"a.wav"}, 8, {8}},
        {sox + "-e floating-point -b NN", {"a.aifc", "a.au"}, 11, {32, 64}},
        {sox + "-e floating-point -b NN", {"a.wav"}, 9, {32, 64}},
        {sox + "-e u-law", {"a.wav", "a.au"}, 0, {8}, uLaw},
        {sox + "-e a-law", {"a.wav"}, 0, {8}, aLaw},
        {sox + "-B -e signed -b NN", {"a.wav"}, 14, {16, 24}},
        {ffmpeg + "pcm_s8", {"a.aif"}, 14, {8}},
        {ffmpeg + "pcm_u8", {"a.wav"}, 8, {8}},
        {ffmpeg + "pcm_sNNbe", {"a.aif", "a.caf", "a.au"}, 14, {16, 24, 32}},
        {ffmpeg + "pcm_sNNle", {"a.wav", "a.caf"}, 12, {16, 24, 32}},
        {ffmpeg + "pcm_sNNle", {"a.aif"}, 12, {16}},
        {ffmpeg + "pcm_sNNle -rf64 always", {"a.wav"}, 12, {16}},
        {ffmpeg + "pcm_fNNbe", {"a.aif"}, 11, {32, 64}},
        {ffmpeg + "pcm_fNNle", {"a.wav", "a.caf"}, 9, {32, 64}},
        {ffmpeg + "pcm_mulaw", {"a.aif", "a.wav", "a.caf"}, 0, {8}, uLaw},
        {ffmpeg + "pcm_alaw", {"a.aif", "a.wav", "a.au"}, 0, {8}, aLaw},
        {sndfile + "-pcms8 pcm.wav", {"a.aif", "a.sd2"}, 14, {8}},
        {sndfile + "-pcmu8 pcm.wav", {"a.aif", "a.wav"}, 8, {8}},
        {sndfile + "-pcmNN pcm.wav", {"a.aif", "a.caf", "a.au", "a.sd2"}, 14, {16, 24, 32}},
        {sndfile + "-pcmNN pcm.wav", {"a.wav", "a.wavex"}, 12, {16, 24, 32}},
        {sndfile + "-pcmNN -endian=little pcm.wav", {"a.aif", "a.caf"}, 12, {16, 24, 32}},
        {sndfile + "-pcmNN -endian=little pcm.wav", {"a.au"}, 12, {16, 24}},
        {sndfile + "-pcmNN -endian=big pcm.wav", {"a.wav"}, 14, {16, 24, 32}},
        {sndfile + "-floatNN float.wav", {"a.aif", "a.caf"}, 11, {32, 64}},
        {sndfile + "-floatNN float.wav", {"a.wav"}, 9, {32, 64}},
        {sndfile + "-floatNN float.wav", {"a.rf64"}, 9, {32}},
        {sndfile + "-floatNN -endian=big float.wav", {"a.wav"}, 11, {32, 64}},
        {sndfile + "-ulaw pcm.wav", {"a.aif", "a.wav"}, 0, {8}, uLaw},
        {sndfile + "-alaw pcm.wav", {"a.aif", "a.wav"}, 0, {8}, aLaw},
    };
    for (const auto& row : rows)
        for (const std::string& file : row.files)
            for (const UInt32 bits : row.bits) {
                const std::string command = replaced(row.command, "NN", std::to_string(bits)) + " " + file;
                SCOPED_TRACE(command);
                std::filesystem::remove(folder.path(file));
                run(command, folder);
                const Opened opened(openFile(folder.path(file)));
                ASSERT_EQ(opened.status, noErr);
                const auto format = formatOf(opened.file);
                EXPECT_EQ(format.mFormatID, row.coding);
                EXPECT_EQ(format.mFormatFlags, row.flags);
                EXPECT_EQ(format.mBitsPerChannel, bits);
                EXPECT_EQ(format.mSampleRate, 44100);
                expectSignal(audioOf(opened.file), format, row.coding == lpcm);
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
    constexpr AudioFileTypeID aiff = kAudioFileAIFFType, aifc = kAudioFileAIFCType, wave = kAudioFileWAVEType,
                              caf = kAudioFileCAFType, au = kAudioFileNextType, sd2 = kAudioFileSoundDesigner2Type;
    const std::map<AudioFileTypeID, std::string> names{{aiff, "our.aif"}, {aifc, "our.aifc"}, {wave, "our.wav"},
                                                       {caf, "our.caf"},  {au, "our.au"},     {sd2, "our.sd2"}};
    const struct {
        std::vector<AudioFileTypeID> types;
        AudioFormatFlags flags;
        std::vector<UInt32> bits;
        std::vector<int> readers; // not all know the rarer types of AIFF-C, padded samples, RIFX, or CAF's floats
        AudioFormatID coding = lpcm;
    } rows[] = {
        {{aiff}, 14, {8, 16, 20, 24, 32}, {0, 1, 2}},
        {{aifc, caf, au}, 14, {8, 16, 24, 32}, {0, 1, 2}},
        {{wave}, 14, {16, 24, 32}, {0, 2}},
        {{sd2}, 14, {8, 16, 24, 32}, {2}},
        {{wave, caf}, 12, {16, 24, 32}, {0, 1, 2}},
        {{wave}, 12, {20}, {1, 2}},
        {{aifc}, 12, {16}, {0, 1, 2}},
        {{aifc}, 12, {24, 32}, {2}},
        {{aifc}, 8, {8}, {1, 2}},
        {{wave}, 8, {8}, {0, 1, 2}},
        {{aifc, au}, 11, {32, 64}, {0, 1, 2}},
        {{caf}, 11, {32, 64}, {1, 2}},
        {{wave}, 11, {32, 64}, {0, 2}},
        {{wave}, 9, {32, 64}, {0, 1, 2}},
        {{caf}, 9, {32, 64}, {1, 2}},
        {{aifc}, 0, {8}, {1, 2}, uLaw},
        {{aifc}, 0, {8}, {1, 2}, aLaw},
        {{wave, caf, au}, 0, {8}, {0, 1, 2}, uLaw},
        {{wave, caf}, 0, {8}, {0, 1, 2}, aLaw},
    };
    for (const auto& row : rows)
        for (const AudioFileTypeID type : row.types)
            for (const UInt32 bits : row.bits) {
                auto format = linear(row.flags, bits, 2);
                format.mFormatID = row.coding;
                const std::string file = names.at(type);
                writeSignal(folder.path(file), type, format);
                for (const int reader : row.readers) {
                    SCOPED_TRACE(testing::Message() << tools[reader].command << " " << file << " " << bits);
                    std::filesystem::remove(folder.path("out.raw"));
                    run(replaced(tools[reader].command, "OURS", file), folder);
                    expectSignal(contentsOf(folder.path("out.raw")), tools[reader].decoded, row.coding == lpcm);
                }
            }
}
