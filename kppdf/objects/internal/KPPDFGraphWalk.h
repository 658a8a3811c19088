#pragma once
#include "kppdf/objects/KPPDFObject.h"

// Walks of the object graph for subobjects() and markSubobjects(). They go depth first through
// elements, entries and a stream's dictionary in order, following references, with a stack of
// their own instead of recursion: a file may chain references (outline items, article beads)
// far deeper than the call stack reaches.

// The targets of the references reachable from object (its own target first when it is a
// reference), each once and not already in visited; every one listed is added to visited.
KPPDFObjectList KPPDFWalkSubobjects(KPPDFObject& object, KPPDFVisitedSet& visited);

// Marks the number of every target reachable from object through references (a numbered scalar
// marks its own), registering each target in its document's table under that number.
void KPPDFWalkMarkSubobjects(KPPDFObject& object, KPPDFMarkBytes& marks);
