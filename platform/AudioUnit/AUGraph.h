// SPDX-License-Identifier: MIT
// Graphs: audio units as nodes, and the connections between them. A graph that is not there (null) answers
// kAudio_ParamError.
//
// One thread at a time per graph; AUGraphStop and AUGraphIsRunning from any thread, callbacks of its units included.
// Changes to an open graph take effect at once; those made before it is opened take effect when it is.
#pragma once

#include "AudioUnit/AudioUnit.h"
#include "Foundation/Export.h"

/// A graph; null is none.
using AUGraph = struct OpaqueAUGraph*;
/// A node of a graph; 0 is none. Numbers are not used twice in a graph.
using AUNode = SInt32;

inline constexpr OSStatus kAUGraphErr_NodeNotFound = -10860;
inline constexpr OSStatus kAUGraphErr_InvalidConnection = -10861;
inline constexpr OSStatus kAUGraphErr_OutputNodeErr = -10862;
inline constexpr OSStatus kAUGraphErr_CannotDoInCurrentContext = -10863;
inline constexpr OSStatus kAUGraphErr_InvalidAudioUnit = -10864;

/// Makes an empty graph, which the caller disposes of.
QMX_EXPORT OSStatus NewAUGraph(AUGraph* graph);
/// Stops and closes the graph, and frees it.
QMX_EXPORT OSStatus DisposeAUGraph(AUGraph graph);

/// Adds a node for the first component that `description` describes. kAUGraphErr_InvalidAudioUnit where there is none,
/// kAUGraphErr_OutputNodeErr for a second output unit. The class data are not used.
QMX_EXPORT OSStatus AUGraphNewNode(AUGraph graph, const ComponentDescription* description, UInt32 classDataSize,
                                   const void* classData, AUNode* node);
/// Removes a node, its connections and its unit.
QMX_EXPORT OSStatus AUGraphRemoveNode(AUGraph graph, AUNode node);
QMX_EXPORT OSStatus AUGraphGetNodeCount(AUGraph graph, UInt32* count);
/// The node at `index`, from 0 in the order they were added.
QMX_EXPORT OSStatus AUGraphGetIndNode(AUGraph graph, UInt32 index, AUNode* node);
/// What a node is, and its unit (null until the graph is open), which stays the graph's. Any output may be null; there
/// are no class data.
QMX_EXPORT OSStatus AUGraphGetNodeInfo(AUGraph graph, AUNode node, ComponentDescription* description,
                                       UInt32* classDataSize, void** classData, AudioUnit* unit);

/// Connects an output of one node to an input of another, in place of what fed that input, and hands the upstream
/// output's format to the input. kAUGraphErr_InvalidConnection for elements that do not exist and for a ring; else what
/// the units answer.
QMX_EXPORT OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode sourceNode, UInt32 sourceOutput,
                                            AUNode destinationNode, UInt32 destinationInput);
QMX_EXPORT OSStatus AUGraphDisconnectNodeInput(AUGraph graph, AUNode destinationNode, UInt32 destinationInput);
QMX_EXPORT OSStatus AUGraphClearConnections(AUGraph graph);
QMX_EXPORT OSStatus AUGraphGetNumberOfConnections(AUGraph graph, UInt32* count);
QMX_EXPORT OSStatus AUGraphGetConnectionInfo(AUGraph graph, UInt32 index, AUNode* sourceNode, UInt32* sourceOutput,
                                             AUNode* destinationNode, UInt32* destinationInput);
/// Completes what was changed: units added to an initialised graph are initialised. `isUpdated` (may be null) becomes
/// true when all is in effect.
QMX_EXPORT OSStatus AUGraphUpdate(AUGraph graph, Boolean* isUpdated);

/// Opens the units of all nodes. The first failure is returned, and the graph stays closed.
QMX_EXPORT OSStatus AUGraphOpen(AUGraph graph);
/// Stops, uninitialises and closes all units; the nodes and connections stay.
QMX_EXPORT OSStatus AUGraphClose(AUGraph graph);
QMX_EXPORT OSStatus AUGraphIsOpen(AUGraph graph, Boolean* isOpen);

/// Initialises all units. The first failure is returned, and then no unit stays initialised.
/// kAudioUnitErr_Uninitialized for a graph that is not open.
QMX_EXPORT OSStatus AUGraphInitialize(AUGraph graph);
QMX_EXPORT OSStatus AUGraphUninitialize(AUGraph graph);
QMX_EXPORT OSStatus AUGraphIsInitialized(AUGraph graph, Boolean* isInitialized);

/// Starts the output unit. Without one there is nothing to start, and it answers 0: such a graph is rendered by its
/// owner.
QMX_EXPORT OSStatus AUGraphStart(AUGraph graph);
/// Stops the output unit, as AudioOutputUnitStop does.
QMX_EXPORT OSStatus AUGraphStop(AUGraph graph);
/// Whether the output unit runs; without one, whether the graph was started.
QMX_EXPORT OSStatus AUGraphIsRunning(AUGraph graph, Boolean* isRunning);
