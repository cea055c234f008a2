// SPDX-License-Identifier: MIT
#include "AudioUnit/AUGraph.h"

#include "Foundation/Memory.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>
#include <vector>

namespace
{

struct Node {
    AUNode number;
    Component component;
    AudioUnit unit = nullptr; ///< while the graph is open
    bool isInitialised = false;

    ComponentDescription description() const
    {
        ComponentDescription result;
        (void)GetComponentInfo(component, &result); // fails for null only
        return result;
    }
    bool isOutput() const { return description().componentType == kAudioUnitType_Output; }
};

struct Connection {
    AUNode source;
    UInt32 output;
    AUNode destination;
    UInt32 input;

    bool feeds(AUNode node, UInt32 element) const { return destination == node && input == element; }
    bool touches(AUNode node) const { return source == node || destination == node; }
};

/// Makes room before any change that could not be undone.
template <class Entry> bool hasRoomForOneMore(std::vector<Entry>& entries)
{
    return qmx::withinMemory([&] { entries.reserve(entries.size() + 1); });
}

/// Connects an input of `unit`, or disconnects it when `source` is null.
OSStatus feed(AudioUnit unit, UInt32 input, AudioUnit source, UInt32 output)
{
    const AudioUnitConnection connection{source, output, input};
    const OSStatus status = AudioUnitSetProperty(unit, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, input,
                                                 &connection, sizeof connection);
    const bool isRefused = status == kAudioUnitErr_InvalidElement || status == kAudioUnitErr_InvalidPropertyValue;
    return isRefused ? kAUGraphErr_InvalidConnection : status;
}

} // namespace

struct OpaqueAUGraph {
    ~OpaqueAUGraph() { close(); }

    Node* node(AUNode number)
    {
        const auto found = std::ranges::find(nodes, number, &Node::number);
        return found == nodes.end() ? nullptr : &*found;
    }

    OSStatus openNode(Node& node);
    void closeNode(Node& node);
    OSStatus apply(const Connection& connection);
    void release(const Connection& connection);
    OSStatus open();
    void close();
    OSStatus initialise();
    void uninitialise();

    std::vector<Node> nodes;
    std::vector<Connection> connections;
    AUNode lastNumber = 0;
    bool isOpen = false, isInitialised = false;
    std::atomic<bool> isStarted = false;
    std::atomic<AudioUnit> output = nullptr; ///< the output unit while the graph is open
};

OSStatus OpaqueAUGraph::openNode(Node& node)
{
    const OSStatus status = OpenAComponent(node.component, &node.unit);
    if (status == noErr && node.isOutput())
        output.store(node.unit);
    return status;
}

void OpaqueAUGraph::closeNode(Node& node)
{
    if (!node.unit)
        return;
    if (output.load() == node.unit)
        output.store(nullptr);
    (void)CloseComponent(node.unit); // fails for null only
    node.unit = nullptr;
    node.isInitialised = false;
}

OSStatus OpaqueAUGraph::apply(const Connection& connection)
{
    return feed(node(connection.destination)->unit, connection.input, node(connection.source)->unit, connection.output);
}

void OpaqueAUGraph::release(const Connection& connection)
{
    if (isOpen)
        feed(node(connection.destination)->unit, connection.input, nullptr, 0);
}

OSStatus OpaqueAUGraph::open()
{
    if (isOpen)
        return noErr;
    OSStatus status = noErr;
    for (auto at = nodes.begin(); at != nodes.end() && status == noErr; ++at)
        status = openNode(*at);
    for (auto at = connections.begin(); at != connections.end() && status == noErr; ++at)
        status = apply(*at);
    isOpen = status == noErr;
    if (!isOpen)
        std::ranges::for_each(nodes, [this](Node& node) { closeNode(node); });
    return status;
}

void OpaqueAUGraph::close()
{
    uninitialise();
    for (Node& node : nodes)
        closeNode(node);
    isOpen = false;
}

OSStatus OpaqueAUGraph::initialise()
{
    if (!isOpen)
        return kAudioUnitErr_Uninitialized;
    for (Node& node : nodes) {
        if (node.isInitialised)
            continue;
        if (const OSStatus status = AudioUnitInitialize(node.unit); status != noErr) {
            if (!isInitialised)
                uninitialise();
            return status;
        }
        node.isInitialised = true;
    }
    isInitialised = true;
    return noErr;
}

void OpaqueAUGraph::uninitialise()
{
    (void)AUGraphStop(this); // a unit that cannot be stopped is uninitialised all the same
    for (Node& node : nodes)
        if (std::exchange(node.isInitialised, false))
            (void)AudioUnitUninitialize(node.unit); // it is closed in any case
    isInitialised = false;
}

OSStatus NewAUGraph(AUGraph* graph)
{
    if (!graph)
        return kAudio_ParamError;
    *graph = new (std::nothrow) OpaqueAUGraph;
    return *graph ? noErr : kAudio_MemFullError;
}

OSStatus DisposeAUGraph(AUGraph graph)
{
    if (!graph)
        return kAudio_ParamError;
    delete graph;
    return noErr;
}

OSStatus AUGraphNewNode(AUGraph graph, const ComponentDescription* description, UInt32, const void*, AUNode* node)
{
    if (!graph || !description || !node)
        return kAudio_ParamError;
    Node added{graph->lastNumber + 1, FindNextComponent(nullptr, description)};
    if (!added.component)
        return kAUGraphErr_InvalidAudioUnit;
    if (added.isOutput() && std::ranges::any_of(graph->nodes, &Node::isOutput))
        return kAUGraphErr_OutputNodeErr;
    if (!hasRoomForOneMore(graph->nodes))
        return kAudio_MemFullError;
    if (graph->isOpen)
        if (const OSStatus status = graph->openNode(added); status != noErr)
            return status;
    graph->nodes.push_back(added);
    *node = graph->lastNumber = added.number;
    return noErr;
}

OSStatus AUGraphRemoveNode(AUGraph graph, AUNode node)
{
    if (!graph)
        return kAudio_ParamError;
    Node* const removed = graph->node(node);
    if (!removed)
        return kAUGraphErr_NodeNotFound;
    for (const Connection& connection : graph->connections)
        if (connection.touches(node))
            graph->release(connection);
    std::erase_if(graph->connections, [node](const Connection& connection) { return connection.touches(node); });
    graph->closeNode(*removed);
    std::erase_if(graph->nodes, [node](const Node& entry) { return entry.number == node; });
    return noErr;
}

OSStatus AUGraphGetNodeCount(AUGraph graph, UInt32* count)
{
    if (!graph || !count)
        return kAudio_ParamError;
    *count = static_cast<UInt32>(graph->nodes.size());
    return noErr;
}

OSStatus AUGraphGetIndNode(AUGraph graph, UInt32 index, AUNode* node)
{
    if (!graph || !node)
        return kAudio_ParamError;
    if (index >= graph->nodes.size())
        return kAUGraphErr_NodeNotFound;
    *node = graph->nodes[index].number;
    return noErr;
}

OSStatus AUGraphGetNodeInfo(AUGraph graph, AUNode node, ComponentDescription* description, UInt32* classDataSize,
                            void** classData, AudioUnit* unit)
{
    if (!graph)
        return kAudio_ParamError;
    const Node* const found = graph->node(node);
    if (!found)
        return kAUGraphErr_NodeNotFound;
    if (description)
        *description = found->description();
    if (classDataSize)
        *classDataSize = 0;
    if (classData)
        *classData = nullptr;
    if (unit)
        *unit = found->unit;
    return noErr;
}

OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode sourceNode, UInt32 sourceOutput, AUNode destinationNode,
                                 UInt32 destinationInput)
{
    if (!graph)
        return kAudio_ParamError;
    if (!graph->node(sourceNode) || !graph->node(destinationNode))
        return kAUGraphErr_NodeNotFound;
    const Connection connection{sourceNode, sourceOutput, destinationNode, destinationInput};
    if (!hasRoomForOneMore(graph->connections))
        return kAudio_MemFullError;
    if (graph->isOpen)
        if (const OSStatus status = graph->apply(connection); status != noErr)
            return status;
    std::erase_if(graph->connections,
                  [&](const Connection& entry) { return entry.feeds(destinationNode, destinationInput); });
    graph->connections.push_back(connection);
    return noErr;
}

OSStatus AUGraphDisconnectNodeInput(AUGraph graph, AUNode destinationNode, UInt32 destinationInput)
{
    if (!graph)
        return kAudio_ParamError;
    const auto found = std::ranges::find_if(graph->connections, [&](const Connection& connection) {
        return connection.feeds(destinationNode, destinationInput);
    });
    if (found == graph->connections.end())
        return kAUGraphErr_InvalidConnection;
    graph->release(*found);
    graph->connections.erase(found);
    return noErr;
}

OSStatus AUGraphClearConnections(AUGraph graph)
{
    if (!graph)
        return kAudio_ParamError;
    for (const Connection& connection : graph->connections)
        graph->release(connection);
    graph->connections.clear();
    return noErr;
}

OSStatus AUGraphGetNumberOfConnections(AUGraph graph, UInt32* count)
{
    if (!graph || !count)
        return kAudio_ParamError;
    *count = static_cast<UInt32>(graph->connections.size());
    return noErr;
}

OSStatus AUGraphGetConnectionInfo(AUGraph graph, UInt32 index, AUNode* sourceNode, UInt32* sourceOutput,
                                  AUNode* destinationNode, UInt32* destinationInput)
{
    if (!graph || !sourceNode || !sourceOutput || !destinationNode || !destinationInput)
        return kAudio_ParamError;
    if (index >= graph->connections.size())
        return kAUGraphErr_InvalidConnection;
    const Connection& connection = graph->connections[index];
    *sourceNode = connection.source;
    *sourceOutput = connection.output;
    *destinationNode = connection.destination;
    *destinationInput = connection.input;
    return noErr;
}

OSStatus AUGraphUpdate(AUGraph graph, Boolean* isUpdated)
{
    if (!graph)
        return kAudio_ParamError;
    const OSStatus status = graph->isInitialised ? graph->initialise() : noErr;
    if (isUpdated)
        *isUpdated = status == noErr;
    return status;
}

OSStatus AUGraphOpen(AUGraph graph)
{
    return graph ? graph->open() : kAudio_ParamError;
}

OSStatus AUGraphClose(AUGraph graph)
{
    if (!graph)
        return kAudio_ParamError;
    graph->close();
    return noErr;
}

OSStatus AUGraphIsOpen(AUGraph graph, Boolean* isOpen)
{
    if (!graph || !isOpen)
        return kAudio_ParamError;
    *isOpen = graph->isOpen;
    return noErr;
}

OSStatus AUGraphInitialize(AUGraph graph)
{
    return graph ? graph->initialise() : kAudio_ParamError;
}

OSStatus AUGraphUninitialize(AUGraph graph)
{
    if (!graph)
        return kAudio_ParamError;
    graph->uninitialise();
    return noErr;
}

OSStatus AUGraphIsInitialized(AUGraph graph, Boolean* isInitialized)
{
    if (!graph || !isInitialized)
        return kAudio_ParamError;
    *isInitialized = graph->isInitialised;
    return noErr;
}

OSStatus AUGraphStart(AUGraph graph)
{
    if (!graph)
        return kAudio_ParamError;
    const AudioUnit output = graph->output.load();
    const OSStatus status = output ? AudioOutputUnitStart(output) : noErr;
    graph->isStarted.store(status == noErr);
    return status;
}

OSStatus AUGraphStop(AUGraph graph)
{
    if (!graph)
        return kAudio_ParamError;
    graph->isStarted.store(false);
    const AudioUnit output = graph->output.load();
    return output ? AudioOutputUnitStop(output) : noErr;
}

OSStatus AUGraphIsRunning(AUGraph graph, Boolean* isRunning)
{
    if (!graph || !isRunning)
        return kAudio_ParamError;
    const AudioUnit output = graph->output.load();
    UInt32 outputRuns = 0, size = sizeof outputRuns;
    if (output)
        (void)AudioUnitGetProperty(output, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0, &outputRuns,
                                   &size); // a unit that does not tell does not run
    *isRunning = output ? outputRuns != 0 : graph->isStarted.load();
    return noErr;
}
