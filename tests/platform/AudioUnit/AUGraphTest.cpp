// SPDX-License-Identifier: MIT
#include "AudioUnit/AUGraph.h"

#include "CoreAudio/AudioHardware.h"
#include "CoreAudio/VirtualHardware.h"
#include "support/Units.h"

using namespace qmx::test;

namespace
{

class AUGraphs : public testing::Test
{
protected:
    bool isRunning()
    {
        Boolean result = false;
        EXPECT_EQ(noErr, AUGraphIsRunning(graph, &result));
        return result;
    }

    OpenGraph graph;
};

} // namespace

TEST_F(AUGraphs, KeepNodesAndConnectionsWhenTheyAreClosedAndOpenedAgain)
{
    const AUNode first = graph.add(converterUnit), second = graph.add(converterUnit);
    EXPECT_EQ(nullptr, graph.unitOf(first));
    EXPECT_EQ(kAudioUnitErr_Uninitialized, AUGraphInitialize(graph));
    EXPECT_EQ(noErr, AUGraphConnectNodeInput(graph, first, 0, second, 0)); // takes effect when the graph is opened
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(noErr, AUGraphOpen(graph));
        Counter counter;
        set(graph.unitOf(first), kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, counter.callback());
        EXPECT_EQ(noErr, AUGraphInitialize(graph));
        EXPECT_EQ(noErr, AUGraphStart(graph)); // nothing to start: the owner pulls
        EXPECT_TRUE(isRunning());
        std::vector<Float32> samples(4);
        BufferList list(samples, 2);
        EXPECT_EQ(noErr, render(graph.unitOf(second), 2, list));
        EXPECT_EQ(1001, samples[3]);
        EXPECT_EQ(noErr, AUGraphStop(graph));
        EXPECT_FALSE(isRunning());
        EXPECT_EQ(noErr, AUGraphClose(graph));
    }
}

TEST_F(AUGraphs, RefuseWhatDoesNotFit)
{
    EXPECT_EQ(AUGraphOpen(graph), noErr);
    const AUNode first = graph.add(converterUnit), second = graph.add(converterUnit);
    graph.add(defaultOutput);
    AUNode node = 0;
    const ComponentDescription unknown{kAudioUnitType_Effect};
    EXPECT_EQ(kAUGraphErr_OutputNodeErr, AUGraphNewNode(graph, &defaultOutput, 0, nullptr, &node));
    EXPECT_EQ(kAUGraphErr_InvalidAudioUnit, AUGraphNewNode(graph, &unknown, 0, nullptr, &node));
    EXPECT_EQ(noErr, AUGraphConnectNodeInput(graph, first, 0, second, 0));
    EXPECT_EQ(kAUGraphErr_InvalidConnection, AUGraphConnectNodeInput(graph, second, 0, first, 0));
    EXPECT_EQ(kAUGraphErr_InvalidConnection, AUGraphConnectNodeInput(graph, first, 1, second, 0));
    EXPECT_EQ(kAUGraphErr_InvalidConnection, AUGraphDisconnectNodeInput(graph, first, 0));
    EXPECT_EQ(kAUGraphErr_NodeNotFound, AUGraphConnectNodeInput(graph, first, 0, 99, 0));
    UInt32 connections = 0;
    EXPECT_EQ(AUGraphGetNumberOfConnections(graph, &connections), noErr);
    EXPECT_EQ(1U, connections);
    EXPECT_EQ(noErr, AUGraphInitialize(graph));
    qmx::VirtualHardware::shared().reset(); // no device
    EXPECT_EQ(kAudioHardwareBadDeviceError, AUGraphStart(graph));
    EXPECT_FALSE(isRunning());

    // a node added later works after an update; a removed one takes its connections along
    const AUNode third = graph.add(converterUnit);
    Boolean isUpdated = false;
    EXPECT_EQ(noErr, AUGraphUpdate(graph, &isUpdated));
    EXPECT_TRUE(isUpdated);
    std::vector<Float32> samples(4);
    BufferList list(samples, 2);
    EXPECT_EQ(kAudioUnitErr_NoConnection, render(graph.unitOf(third), 2, list));
    EXPECT_EQ(noErr, AUGraphRemoveNode(graph, first));
    EXPECT_EQ(AUGraphGetNumberOfConnections(graph, &connections), noErr);
    EXPECT_EQ(0U, connections);
    EXPECT_EQ(kAudioUnitErr_NoConnection, render(graph.unitOf(second), 2, list));
    EXPECT_EQ(kAudio_ParamError, AUGraphStart(nullptr));
}
