// SPDX-License-Identifier: MIT
// Stores and reads a record of 100 tracks with cover art in a file on disk, and measures the memory that 10,000 rounds
// leave in use.
#include <QMXCoreAudio/Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace
{

using Factory = QMXAudioTrackInfoReaderWriterFactory;

const std::string path = "store-benchmark.aif";

std::shared_ptr<QMXTrackAndProcessingInfo> largeRecord()
{
    const auto cover = qmx::Image::initWithData(std::vector<UInt8>(200'000, 0x5a));
    auto record = QMXTrackAndProcessingInfo::init();
    for (UInt64 i = 0; i < 100; ++i) {
        auto track = QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(
            "Track " + std::to_string(i), i * 10'000'000, (i + 1) * 10'000'000, true);
        track->setTrackArtistName("Artist");
        track->setAlbumTitle("Album");
        track->setCoverArt(cover);
        record->addTrackInfo(std::move(track));
    }
    return record;
}

void makeFile()
{
    std::ofstream(path, std::ios::binary).write("FORM\0\0\0\4AIFF", 12);
}

bool store(const std::shared_ptr<QMXTrackAndProcessingInfo>& record)
{
    const auto writer = Factory::writerWithAudioFilePath(path);
    writer->setTrackAndProcessingInfo(record);
    return writer->write() == 0;
}

bool isStored()
{
    const auto found = Factory::readerWithAudioFilePath(path)->read();
    return found && found->trackInfos() && found->trackInfos()->size() == 100;
}

/// The memory in use, in KiB.
double residentSize()
{
    long pages = 0;
    std::ifstream status("/proc/self/statm");
    status >> pages >> pages;
    return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

void storeRecord(benchmark::State& state)
{
    makeFile();
    const auto record = largeRecord();
    for (auto _ : state)
        benchmark::DoNotOptimize(store(record));
    if (!isStored())
        state.SkipWithError("the record did not arrive");
    std::remove(path.c_str());
}

void readRecord(benchmark::State& state)
{
    makeFile();
    store(largeRecord());
    for (auto _ : state)
        if (!isStored())
            state.SkipWithError("the record cannot be read");
    std::remove(path.c_str());
}

void growthOver10000Rounds(benchmark::State& state)
{
    makeFile();
    const auto record = largeRecord();
    const auto rounds = [&](int count) {
        for (int i = 0; i < count; ++i)
            if (!store(record) || !isStored())
                state.SkipWithError("the record did not arrive");
    };
    for (auto _ : state) {
        rounds(100);
        const double before = residentSize();
        rounds(10'000);
        state.counters["growth_KiB"] = residentSize() - before;
    }
    std::remove(path.c_str());
}

BENCHMARK(storeRecord)->Unit(benchmark::kMillisecond);
BENCHMARK(readRecord)->Unit(benchmark::kMillisecond);
BENCHMARK(growthOver10000Rounds)->Unit(benchmark::kSecond)->Iterations(1);

} // namespace
