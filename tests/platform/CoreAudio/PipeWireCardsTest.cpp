// SPDX-License-Identifier: MIT
#include "platform/CoreAudio/PipeWireTest.h"

#include "CoreAudio/AudioDeviceTypes.h"
#include "support/FakeHardware.h"

namespace
{

std::vector<std::string> sourceNames(AudioDeviceID device, bool isInput)
{
    std::array<UInt32, 8> ids{};
    UInt32 size = sizeof ids;
    EXPECT_EQ(AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyDataSources, &size, ids.data()), noErr);
    std::vector<std::string> names;
    for (UInt32 index = 0; index < size / sizeof(UInt32); ++index) {
        CFStringRef name = nullptr;
        AudioValueTranslation translation{&ids.at(index), sizeof(UInt32), static_cast<void*>(&name), sizeof name};
        UInt32 room = sizeof translation;
        EXPECT_EQ(AudioDeviceGetProperty(device, 0, isInput, kAudioDevicePropertyDataSourceNameForIDCFString, &room,
                                         &translation),
                  noErr);
        names.emplace_back(CFStringGetText(name));
        CFRelease(name);
    }
    return names;
}

} // namespace

/// A card with two outputs, one of them a jack, and two inputs, and its two nodes. Without a session manager, which
/// would choose routes by itself meanwhile.
class PipeWireCardsTest : public PipeWireTest
{
protected:
    PipeWireCardsTest()
    {
        const std::string card = hardware.addCard(
            "device.name=card device.api=alsa device.bus=usb \"device.vendor.name\"=\"Fine Boxes\" "
            "device.product.name=Box",
            {{.index = 7, .isInput = true, .name = "Microphone", .profileDevice = 1},
             {.index = 2, .isInput = true, .name = "Line", .profileDevice = 1, .isChosen = true},
             {.index = 3, .isInput = false, .name = "Speakers", .profileDevice = 4},
             {.index = 5, .isInput = false, .name = "Headphones", .profileDevice = 4, .isChosen = true}});
        server().plugIn("card-in", "media.class=Audio/Source/Virtual card.profile.device=1 device.id=" + card);
        server().plugIn("card-out", "media.class=Audio/Sink card.profile.device=4 device.id=" + card);
        EXPECT_TRUE(waitUntil([] {
            return find("card-in") && find("card-out") && sourceNames(find("card-in"), true).size() == 2 &&
                   sourceNames(find("card-out"), false).size() == 2;
        }));
        output = find("card-out");
        listenTo(output);
    }
    qmx::test::FakeRoute& route(std::vector<qmx::test::FakeRoute>& routes, std::int32_t index)
    {
        return *std::ranges::find(routes, index, &qmx::test::FakeRoute::index);
    }
    qmx::test::FakeHardware hardware;
    AudioDeviceID output = kAudioDeviceUnknown;
};

TEST_F(PipeWireCardsTest, CardsGiveTheirDevicesMakerAndTransportAndRoutesAsDataSources)
{
    const AudioDeviceID input = find("card-in");
    for (const AudioDeviceID device : {input, output}) {
        EXPECT_EQ(textOf(device, kAudioDevicePropertyDeviceManufacturerCFString), "Fine Boxes");
        EXPECT_EQ(textOf(device, kAudioDevicePropertyModelUID), "Box");
        EXPECT_EQ(get<UInt32>(device, 0, device == input, kAudioDevicePropertyTransportType),
                  kIOAudioDeviceTransportTypeUSB);
    }
    EXPECT_EQ(sourceNames(input, true), (std::vector<std::string>{"Microphone", "Line"}));
    EXPECT_EQ(sourceNames(output, false), (std::vector<std::string>{"Speakers", "Headphones"}));

    const auto source = [this] { return get<UInt32>(output, 0, false, kAudioDevicePropertyDataSource); };
    const UInt32 headphones = source();
    EXPECT_EQ(set(output, 0, false, kAudioDevicePropertyDataSource, headphones - 2), noErr);
    EXPECT_TRUE(waitFor(output, kAudioDevicePropertyDataSource, [&] { return source() == headphones - 2; }));
    auto routes = hardware.routes();
    EXPECT_TRUE(route(routes, 3).isChosen && !route(routes, 5).isChosen && route(routes, 2).isChosen);
    hardware.changeRoutes([this](auto& all) { // as by a knob of the device
        route(all, 3).isChosen = false;
        route(all, 5).isChosen = true;
    });
    EXPECT_TRUE(waitFor(output, kAudioDevicePropertyDataSource, [&] { return source() == headphones; }));
    EXPECT_EQ(set(output, 0, false, kAudioDevicePropertyDataSource, UInt32{77}), kAudioHardwareIllegalOperationError);

    const auto jack = [this] { return get<UInt32>(output, 0, false, kAudioDevicePropertyJackIsConnected); };
    EXPECT_EQ(jack(), 1U);
    hardware.changeRoutes([this](auto& all) { route(all, 5).isAvailable = false; });
    EXPECT_TRUE(waitFor(output, kAudioDevicePropertyJackIsConnected, [&] { return jack() == 0; }));
}

TEST_F(PipeWireCardsTest, LevelsOfCardsAreTheirRoutes)
{
    const auto volume = [this](UInt32 channel) {
        return get<Float32>(output, channel, false, kAudioDevicePropertyVolumeScalar);
    };
    EXPECT_EQ(set(output, 1, false, kAudioDevicePropertyVolumeScalar, 0.5F), noErr);
    EXPECT_EQ(set(output, 2, false, kAudioDevicePropertyVolumeScalar, 0.25F), noErr);
    EXPECT_EQ(set(output, 0, false, kAudioDevicePropertyMute, UInt32{1}), noErr);
    EXPECT_TRUE(waitFor(output, kAudioDevicePropertyMute, [&] {
        const auto routes = hardware.routes();
        const auto& headphones = *std::ranges::find(routes, 5, &qmx::test::FakeRoute::index);
        return headphones.volumes == std::vector<float>{0.5F, 0.25F} && headphones.isMuted && volume(2) == 0.25F &&
               get<UInt32>(output, 0, false, kAudioDevicePropertyMute) == 1;
    }));
    expectSeen("pw-cli enum-params card-out Props", "Float 1.000000 Float 1.000000"); // the card applies the volume
    hardware.changeRoutes([this](auto& all) {
        route(all, 5).volumes = {0.75F, 0.125F};
        route(all, 5).isMuted = false;
    });
    EXPECT_TRUE(waitFor(output, kAudioDevicePropertyVolumeScalar, [&] {
        return volume(1) == 0.75F && volume(2) == 0.125F &&
               get<UInt32>(output, 0, false, kAudioDevicePropertyMute) == 0;
    }));
}

TEST_F(PipeWireCardsTest, TheLatencyThatASinkTellsIsItsDevices)
{
    hardware.addNode("media.class=Audio/Sink node.name=far", 2, 0);
    const AudioDeviceID far = awaited("far");
    listenTo(far);
    for (const UInt32 frames : {480U, 96U}) {
        hardware.setLatency(frames);
        EXPECT_TRUE(waitFor(far, kAudioDevicePropertyLatency, [=] {
            return get<UInt32>(far, 0, false, kAudioDevicePropertyLatency) == frames;
        })) << frames;
    }
}
