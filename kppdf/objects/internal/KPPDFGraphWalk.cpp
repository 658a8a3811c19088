#include "kppdf/objects/internal/KPPDFGraphWalk.h"

#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"

namespace {
// The parts a walk goes into, in order: elements, entries, or a stream's dictionary.
KPPDFObjectList partsOf(KPPDFObject& object) {
    KPPDFObjectList parts;
    if (KPPDFObjectArray* array = object.asArray()) {
        parts = array->value();
    } else if (KPPDFObjectDictionary* dictionary = object.asDictionary()) {
        parts.reserve(dictionary->value().size());
        for (auto& [key, entry] : dictionary->value())
            parts.push_back(entry);
    } else if (KPPDFObjectStream* stream = object.asStream()) {
        if (stream->dictionary())
            parts.push_back(stream->dictionary());
    }
    return parts;
}

struct Frame {
    KPPDFObjectList parts;
    size_t next = 0;
};

bool isMarked(const KPPDFMarkBytes& marks, uint32_t number) {
    return number < marks.size() && marks[number];
}
} // namespace

KPPDFObjectList KPPDFWalkSubobjects(KPPDFObject& object, KPPDFVisitedSet& visited) {
    KPPDFObjectList result;
    std::vector<Frame> stack;
    // A target is listed, then walked before the parts after the reference that led to it.
    auto reach = [&](KPPDFRef<KPPDFObject> target) {
        while (target && visited.insert(target.get()).second) {
            result.push_back(target);
            if (!target->asReference()) {
                stack.push_back({partsOf(*target)});
                return;
            }
            target = target->asReference()->resolvedObject();
        }
    };
    if (KPPDFObjectReference* reference = object.asReference())
        reach(reference->resolvedObject());
    else
        stack.push_back({partsOf(object)});
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next == frame.parts.size()) {
            stack.pop_back();
            continue;
        }
        KPPDFRef<KPPDFObject> part = frame.parts[frame.next++];
        if (!part || visited.count(part.get()))
            continue;
        if (KPPDFObjectReference* reference = part->asReference())
            reach(reference->resolvedObject());
        else
            stack.push_back({partsOf(*part)});
    }
    return result;
}

void KPPDFWalkMarkSubobjects(KPPDFObject& object, KPPDFMarkBytes& marks) {
    std::vector<Frame> stack;
    // What markSubobjects does for one object; containers are queued instead of entered, and
    // a target that is a reference again is followed in a loop.
    auto mark = [&](KPPDFObject& start) {
        KPPDFObject* current = &start;
        KPPDFRef<KPPDFObject> held; // the target followed, kept alive while it is walked
        while (KPPDFObjectReference* reference = current->asReference()) {
            KPPDFRef<KPPDFObject> target = reference->resolvedObject();
            if (!target)
                return;
            uint32_t number = target->objectNumber();
            if (number == 0 || isMarked(marks, number))
                return;
            if (KPPDFDocument* document = reference->document())
                document->setObject(target, number, reference->generation());
            // The base form marks the object's own number.
            target->KPPDFObject::markSubobjects(marks);
            held = std::move(target);
            current = held.get();
        }
        if (current->asArray() || current->asDictionary() || current->asStream())
            stack.push_back({partsOf(*current)});
        else
            current->KPPDFObject::markSubobjects(marks);
    };
    mark(object);
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next == frame.parts.size()) {
            stack.pop_back();
            continue;
        }
        KPPDFRef<KPPDFObject> part = frame.parts[frame.next++];
        if (!part)
            continue;
        uint32_t number = part->objectNumber();
        if (number && isMarked(marks, number) && !part->asReference())
            continue;
        mark(*part);
    }
}
