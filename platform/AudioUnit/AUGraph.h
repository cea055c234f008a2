// SPDX-License-Identifier: MIT
// Graphs: audio units as nodes, and the connections between them. Every call returns kAudio_ParamError for a null
// graph.
//
// One thread at a time per graph; AUGraphStop and AUGraphIsRunning from any thread, callbacks of its units included.
// Changes to an open graph take effect at once, earlier changes when it is opened.
#pragma once

#include <QMXCoreAudio/AudioUnit/AudioUnit.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// A graph; null is none.
using AUGraph = struct OpaqueAUGraph*;
/// A node of a graph; 0 is none. A graph uses no number twice.
using AUNode = SInt32;

inline constexpr OSStatus kAUGraphErr_NodeNotFound = -10860;
inline constexpr OSStatus kAUGraphErr_InvalidConnection = -10861;
inline constexpr OSStatus kAUGraphErr_OutputNodeErr = -10862;
inline constexpr OSStatus kAUGraphErr_CannotDoInCurrentContext = -10863;
inline constexpr OSStatus kAUGraphErr_InvalidAudioUnit = -10864;

/// Makes an empty graph, which the caller disposes of. kAudio_MemFullError and null when memory runs out.
[[nodiscard]] QMX_EXPORT OSStatus NewAUGraph(AUGraph* graph);
/// Stops and closes the graph, and frees it.
[[nodiscard]] QMX_EXPORT OSStatus DisposeAUGraph(AUGraph graph);

/// Adds a node for the first component that `description` describes. kAUGraphErr_InvalidAudioUnit if none does,
/// kAUGraphErr_OutputNodeErr for a second output unit. The class data are not used.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphNewNode(AUGraph graph, const ComponentDescription* description,
                                                 UInt32 classDataSize, const void* classData, AUNode* node);
/// Removes a node, its connections and its unit. kAUGraphErr_NodeNotFound if the graph lacks it.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphRemoveNode(AUGraph graph, AUNode node);
[[nodiscard]] QMX_EXPORT OSStatus AUGraphGetNodeCount(AUGraph graph, UInt32* count);
/// The node at `index`, from 0 in the order they were added.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphGetIndNode(AUGraph graph, UInt32 index, AUNode* node);
/// A node's description and its unit (null until the graph is open), which the graph owns. Any output pointer may be
/// null. The class data are always empty.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphGetNodeInfo(AUGraph graph, AUNode node, ComponentDescription* description,
                                                     UInt32* classDataSize, void** classData, AudioUnit* unit);

/// Connects an output of one node to an input of another, replaces what fed that input, and sets the input's format to
/// the output's. kAUGraphErr_InvalidConnection for elements that do not exist and for a ring; otherwise the status of
/// the units. While the graph is closed only the nodes are checked, and AUGraphOpen returns the rest.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode sourceNode, UInt32 sourceOutput,
                                                          AUNode destinationNode, UInt32 destinationInput);
/// Removes the connection of an input; kAUGraphErr_InvalidConnection if there is none.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphDisconnectNodeInput(AUGraph graph, AUNode destinationNode,
                                                             UInt32 destinationInput);
/// Removes all connections.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphClearConnections(AUGraph graph);
[[nodiscard]] QMX_EXPORT OSStatus AUGraphGetNumberOfConnections(AUGraph graph, UInt32* count);
[[nodiscard]] QMX_EXPORT OSStatus AUGraphGetConnectionInfo(AUGraph graph, UInt32 index, AUNode* sourceNode,
                                                           UInt32* sourceOutput, AUNode* destinationNode,
                                                           UInt32* destinationInput);
/// Completes earlier changes: initialises the units that were added to an initialised graph. `isUpdated` (may be null)
/// becomes true if that succeeded.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphUpdate(AUGraph graph, Boolean* isUpdated);

/// Opens the units of all nodes. On the first failure, which is returned, the graph stays closed.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphOpen(AUGraph graph);
/// Stops, uninitialises and closes all units; the nodes and connections stay.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphClose(AUGraph graph);
[[nodiscard]] QMX_EXPORT OSStatus AUGraphIsOpen(AUGraph graph, Boolean* isOpen);

/// Initialises all units. On the first failure, which is returned, no unit stays initialised.
/// kAudioUnitErr_Uninitialized for a graph that is not open.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphInitialize(AUGraph graph);
[[nodiscard]] QMX_EXPORT OSStatus AUGraphUninitialize(AUGraph graph);
[[nodiscard]] QMX_EXPORT OSStatus AUGraphIsInitialized(AUGraph graph, Boolean* isInitialized);

/// Starts the output unit. Without one it only returns 0: the owner renders such a graph.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphStart(AUGraph graph);
/// Stops the output unit, as AudioOutputUnitStop does.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphStop(AUGraph graph);
/// Whether the output unit runs or, without one, whether the graph was started and not stopped.
[[nodiscard]] QMX_EXPORT OSStatus AUGraphIsRunning(AUGraph graph, Boolean* isRunning);
