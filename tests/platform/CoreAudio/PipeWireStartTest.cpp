// SPDX-License-Identifier: MIT
// Obstacles that keep the sound server's library from working when devices are first used. Each case runs in its own
// process.
#include "platform/CoreAudio/PipeWireTest.h"
#include "support/CapturedLog.h"
#include "support/NoThreads.h"

#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <pipewire/pipewire.h>
#include <sys/resource.h>

namespace
{

#ifdef __SANITIZE_ADDRESS__
constexpr rlim_t fewest = 5; // a sanitizer that is built in reads memory through a pipe
#else
constexpr rlim_t fewest = 0;
#endif

/// Limits the descriptors to a few more than are open.
struct NoDescriptors {
    static constexpr std::size_t lines = 1;
    explicit NoDescriptors(rlim_t more)
    {
        const int next = fcntl(0, F_DUPFD_CLOEXEC, 0);
        close(next);
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit tight{.rlim_cur = static_cast<rlim_t>(next) + more, .rlim_max = limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &tight);
    }
    void mend() const { setrlimit(RLIMIT_NOFILE, &limit); }
    rlimit limit{};
};

/// Makes the library look for its plugins in a folder that does not exist.
struct MissingParts {
    static constexpr std::size_t lines = 1;
    MissingParts(const char* variable, const char* name)
    {
        Dl_info info{};
        dladdr(reinterpret_cast<const void*>(pw_get_library_version), &info);
        parts = std::filesystem::path(info.dli_fname).parent_path() / name;
        setenv(variable, link.c_str(), 1);
    }
    void mend() const { std::filesystem::create_symlink(parts, link); }
    qmx::test::TemporaryFolder folder;
    std::string link = folder.path("parts");
    std::filesystem::path parts;
};

struct NoThreads {
    static constexpr std::size_t lines = 2; // one of them about the thread that follows the devices
    void mend() { none.reset(); }
    std::optional<qmx::test::NoThreads> none{std::in_place};
};

/// Ends the process: with 0 if there are no devices while the obstacle exists and the server's devices afterwards, and
/// the obstacle's lines are logged.
template <class Obstacle, class... Arguments> void startBehind(Arguments... arguments)
{
    alarm(60); // fails if it waits for ever
    const bool isRight = [&] {
        qmx::test::SoundServer server;
        server.start();
        const qmx::test::CapturedLog log;
        EXPECT_EQ(noErr, qmx::setAudioBackend(qmx::AudioBackend::pipeWire));
        Obstacle obstacle(arguments...);
        const auto countDevices = [] {
            UInt32 size = 0;
            EXPECT_EQ(noErr, AudioHardwareGetPropertyInfo(kAudioHardwarePropertyDevices, &size, nullptr));
            return size / sizeof(AudioDeviceID);
        };
        if (countDevices() != 0)
            return false;
        static std::atomic<int> changes{0};
        const AudioHardwarePropertyListenerProc heard = [](AudioHardwarePropertyID, void*) -> OSStatus {
            ++changes;
            changes.notify_one();
            return noErr;
        };
        EXPECT_EQ(noErr, AudioHardwareAddPropertyListener(kAudioHardwarePropertyDevices, heard, nullptr));
        obstacle.mend();
        countDevices(); // threads are tried again when they are needed
        changes.wait(0);
        return countDevices() > 0 && log.lines().size() == Obstacle::lines && log.lines()[0].starts_with("PipeWire: ");
    }();
    std::exit(isRight ? 0 : 1);
}

} // namespace

TEST(PipeWireStart, ALibraryThatCannotWorkGivesNoDevicesUntilItCan)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const testing::ExitedWithCode isRight(0);
    EXPECT_EXIT(startBehind<NoDescriptors>(fewest), isRight, "");
    EXPECT_EXIT(startBehind<NoDescriptors>(6U), isRight, "");
    EXPECT_EXIT((startBehind<MissingParts>("SPA_PLUGIN_DIR", "spa-0.2")), isRight, "");
    EXPECT_EXIT((startBehind<MissingParts>("PIPEWIRE_MODULE_DIR", "pipewire-0.3")), isRight, "");
    EXPECT_EXIT(startBehind<NoThreads>(), isRight, "");
}
