// SPDX-License-Identifier: MIT
// gain FACTOR FILE [OUT]: makes a file louder, in place by a processor, or by pulling its frames into a new file.
#include <QMXCoreAudio/qmx.h>
#include <cstdlib>
#include <iostream>

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3 && argumentCount != 4)
        return 2;
    const auto amplify = [factor = std::strtof(arguments[1], nullptr)](std::span<float> samples, UInt32) {
        for (float& sample : samples)
            sample *= factor;
        return true;
    };
    const auto pull = [&]() -> qmx::Result<void> {
        qmx::FrameReader reader(arguments[2]);
        auto writer = qmx::FrameWriter::create(arguments[3], reader.format());
        for (const std::span<const float> block : reader) {
            std::vector<float> samples(block.begin(), block.end());
            amplify(samples, reader.channels());
            if (auto written = writer ? writer->write(samples) : writer.error(); !written)
                return written;
        }
        return reader.error() ? *reader.error() : writer ? writer->finish() : writer.error();
    };
    const auto done = argumentCount == 3 ? qmx::process(arguments[2], {}, amplify) : pull();
    return done ? 0 : (std::cerr << done.error().text() << '\n', 1);
}
