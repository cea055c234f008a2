// SPDX-License-Identifier: MIT
#include "support/SoundServer.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qmx::test
{
namespace
{

// A sink and a source that captures what the sink plays; no message bus.
constexpr const char* server = R"(
context.properties = { core.daemon = true  core.name = pipewire-0  support.dbus = false  link.max-buffers = 16
    default.clock.rate = 48000  default.clock.allowed-rates = [ 44100 48000 96000 ]
    default.clock.quantum = 1024  default.clock.min-quantum = 32  default.clock.max-quantum = 8192 }
context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert   support.* = support/libspa-support }
context.modules = [
    { name = libpipewire-module-rt args = { nice.level = -11 } flags = [ ifexists nofail ] }
    { name = libpipewire-module-protocol-native }   { name = libpipewire-module-metadata }
    { name = libpipewire-module-spa-node-factory }  { name = libpipewire-module-client-node }
    { name = libpipewire-module-client-device }     { name = libpipewire-module-access }
    { name = libpipewire-module-adapter }           { name = libpipewire-module-link-factory } ]
context.objects = [
    { factory = spa-node-factory args = { factory.name = support.node.driver node.name = Dummy-Driver
        node.group = pipewire.dummy priority.driver = 20000 } }
    { factory = adapter args = { factory.name = support.null-audio-sink node.name = test-sink
        node.description = "Test Sink" media.class = Audio/Sink audio.position = [ FL FR ]
        monitor.channel-volumes = true PORTS } }
    { factory = adapter args = { factory.name = support.null-audio-sink node.name = test-source
        node.description = "Test Source" media.class = Audio/Source/Virtual audio.position = [ FL FR ]
        monitor.channel-volumes = true PORTS } }
    UNMANAGED ]
)";

// A session manager makes the nodes' ports, and the object with the default devices.
constexpr const char* ports = "adapter.auto-port-config={ mode=dsp monitor=true position=preserve }";
constexpr const char* unmanaged = R"(
    { factory = metadata args = { metadata.name = default } }
    { factory = link-factory args = { link.output.node = test-sink link.output.port = monitor_FL
        link.input.node = test-source link.input.port = input_FL link.passive = true object.linger = true } }
    { factory = link-factory args = { link.output.node = test-sink link.output.port = monitor_FR
        link.input.node = test-source link.input.port = input_FR link.passive = true object.linger = true } })";

constexpr const char* manager = R"(
context.properties = { log.level = 1 wireplumber.script-engine = lua-scripting support.dbus = false }
context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert   support.* = support/libspa-support }
context.modules = [ { name = libpipewire-module-protocol-native } { name = libpipewire-module-client-node }
    { name = libpipewire-module-client-device } { name = libpipewire-module-adapter }
    { name = libpipewire-module-metadata } { name = libpipewire-module-session-manager } ]
wireplumber.components = [ { name = libwireplumber-module-lua-scripting, type = module }
    { name = main.lua, type = config/lua } ]
)";

constexpr const char* managerParts = R"(
components = {}
local function part(name, a) components[name] = { "libwireplumber-module-" .. name, type = "module", args = a } end
local function script(name, a) components[name] = { name, type = "script/lua", args = a } end
part("metadata") part("default-nodes", { ["use-persistent-storage"] = false, ["auto-echo-cancel"] = false })
part("si-node") part("si-audio-adapter") part("si-standard-link") part("si-audio-endpoint") part("default-nodes-api")
script("policy-device-profile.lua", { persistent = {} })
script("policy-device-routes.lua", { ["use-persistent-storage"] = false })
script("create-item.lua", { move = true, follow = true }) script("policy-node.lua", { move = true, follow = true })
)";

constexpr const char* socketName = "pipewire-0";
constexpr int patience = 30000; // milliseconds

std::string replaced(std::string text, const std::string& word, const std::string& by)
{
    for (std::size_t place = 0; (place = text.find(word, place)) != std::string::npos; place += by.size())
        text.replace(place, word.size(), by);
    return text;
}

} // namespace

SoundServer::SoundServer()
{
    const std::string bare = replaced(replaced(server, "PORTS", ports), "UNMANAGED", unmanaged);
    std::ofstream(folder_.path("bare.conf")) << bare;
    std::ofstream(folder_.path("managed.conf")) << replaced(replaced(server, "PORTS", ""), "UNMANAGED", "");
    std::ofstream(folder_.path("wireplumber.conf")) << manager;
    std::filesystem::create_directory(folder_.path("main.lua.d"));
    std::ofstream(folder_.path("main.lua.d/10-parts.lua")) << managerParts;
    for (const char* const name :
         {"XDG_RUNTIME_DIR", "HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "WIREPLUMBER_CONFIG_DIR"})
        setenv(name, folder_.path("").c_str(), 1);
    for (const char* const name : {"PIPEWIRE_RUNTIME_DIR", "PIPEWIRE_REMOTE", "DBUS_SESSION_BUS_ADDRESS"})
        unsetenv(name);
}

SoundServer::~SoundServer()
{
    kill();
}

void SoundServer::spawn(std::vector<std::string> words)
{
    words.insert(words.begin(), {"setpriv", "--pdeathsig", "KILL"});
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t process = 0;
    ASSERT_EQ(posix_spawnp(&process, arguments.front(), nullptr, nullptr, arguments.data(), environ), 0);
    processes_.push_back(process);
}

void SoundServer::start(bool isManaged)
{
    isManaged_ = isManaged;
    const int watch = inotify_init1(IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, folder_.path("").c_str(), IN_CREATE), 0);
    spawn({"pipewire", "-c", folder_.path(isManaged ? "managed.conf" : "bare.conf")});
    while (access(folder_.path(socketName).c_str(), F_OK) != 0) {
        pollfd poll{.fd = watch, .events = POLLIN, .revents = 0};
        ASSERT_EQ(::poll(&poll, 1, patience), 1) << "the server does not come up";
        std::array<char, 4096> events{};
        ASSERT_GT(read(watch, events.data(), events.size()), 0);
    }
    close(watch);
    if (isManaged)
        spawn({"wireplumber"});
}

void SoundServer::linkSinkToSource() const
{
    run("pw-link -P test-sink:monitor_FL test-source:input_FL && pw-link -P test-sink:monitor_FR test-source:input_FR");
}

void SoundServer::kill()
{
    for (; !processes_.empty(); processes_.pop_back()) {
        ::kill(processes_.back(), SIGKILL);
        waitpid(processes_.back(), nullptr, 0);
    }
    unlink(folder_.path(socketName).c_str());
}

std::string SoundServer::run(const std::string& command) const
{
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 4096> block{};
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), pipe))
        output.append(block.data(), count);
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << output;
    std::istringstream words(output);
    std::string spaced;
    for (std::string word; words >> word;)
        spaced += word + ' ';
    return spaced;
}

void SoundServer::plugIn(const std::string& name, const std::string& properties) const
{
    run("pw-cli create-node adapter '{ factory.name=support.null-audio-sink object.linger=true audio.position=[FL FR] "
        "node.name=" +
        name + " " + properties + " " + (isManaged_ ? "" : ports) + " }'");
}

void SoundServer::unplug(const std::string& name) const
{
    run("pw-cli destroy " + name);
}

std::string SoundServer::numberOf(const std::string& name) const
{
    std::istringstream words(run("pw-cli info " + name)); // "id: 17 ..."
    std::string number;
    words >> number >> number;
    return number;
}

} // namespace qmx::test
