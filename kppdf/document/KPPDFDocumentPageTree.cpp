// The page tree (ISO 32000-1, 7.7.3), named destinations (7.7.4 and 12.3.2.3), the outline
// (12.3.3), and the page list that the rest of the library works from.
#include <cmath>
#include <functional>
#include <initializer_list>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kppdf/document/KPPDFDestination.h"
#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFOutline.h"
#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNull.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// The nodes a walk has met, by address, in an open-addressing table: the page walk meets
// thousands of pages, and a node-based set would allocate for each.
class NodeSet {
public:
    NodeSet() = default;
    NodeSet(std::initializer_list<const KPPDFObject*> nodes) {
        for (const KPPDFObject* node : nodes)
            insert(node);
    }
    // Adds node; second is false when it was there already (as for a standard set).
    std::pair<const KPPDFObject*, bool> insert(const KPPDFObject* node) {
        if (!node) {
            bool added = !hasNull_;
            hasNull_ = true;
            return {node, added};
        }
        if ((count_ + 1) * 2 > slots_.size())
            grow();
        const size_t mask = slots_.size() - 1;
        for (size_t i = hash(node) & mask;; i = (i + 1) & mask) {
            if (!slots_[i]) {
                slots_[i] = node;
                count_++;
                return {node, true};
            }
            if (slots_[i] == node)
                return {node, false};
        }
    }

private:
    static size_t hash(const KPPDFObject* node) {
        uint64_t value = reinterpret_cast<uintptr_t>(node);
        value = (value ^ (value >> 31)) * 0x9E3779B97F4A7C15ull;
        return static_cast<size_t>(value ^ (value >> 32));
    }
    void grow() {
        std::vector<const KPPDFObject*> old(std::max<size_t>(64, slots_.size() * 2), nullptr);
        old.swap(slots_);
        count_ = 0;
        for (const KPPDFObject* node : old)
            if (node)
                insert(node);
    }
    std::vector<const KPPDFObject*> slots_; // a power of two long, at most half full
    size_t count_ = 0;
    bool hasNull_ = false;
};

std::string typeText(const KPPDFRef<KPPDFObject>& type) {
    if (!type)
        return "(null)";
    if (KPPDFObjectName* name = type->asName())
        return name->value();
    return type->description();
}

// The entries of a page dictionary that the page's set-up reads: the walk reads them alone from
// a plain dictionary (KPPDFObjectDictionary::peekEntries), which then need not be parsed.
enum PageKey {
    kPageType,
    kPageParent,
    kPageMediaBox,
    kPageCropBox,
    kPageRotate,
    kPageImprints,
    kPageKeys
};
constexpr std::string_view kPageKeyNames[kPageKeys] = {"Type",    "Parent", "MediaBox",
                                                       "CropBox", "Rotate", "ParvelImprints"};
struct PageEntries {
    KPPDFRef<KPPDFObject> values[kPageKeys];
};

// Depth-first, left to right, without recursion: a tree as deep as the file likes cannot
// exhaust the stack. Every node is taken once, so a node listing an ancestor (or any node
// listed twice) cannot make the walk loop or repeat pages. root (may be null) counts as seen.
// visit, when given, is called with each page as it is found, the source the dictionary had
// before the walk read it (empty if it was parsed already), and, when the dictionary is still
// unparsed, the entries the walk read from it.
using PageVisitor = std::function<void(const KPPDFRef<KPPDFObjectDictionary>&,
                                       KPPDFObjectDictionary::Source, const PageEntries*)>;
void walkPageTree(const KPPDFObject* root, const KPPDFRef<KPPDFObjectArray>& kids,
                  KPPDFObjectList& pagesObjects,
                  std::vector<KPPDFRef<KPPDFObjectDictionary>>& pageObjects,
                  const PageVisitor& visit = nullptr) {
    struct Level {
        KPPDFRef<KPPDFObjectArray> kids;
        size_t next;
        const KPPDFObject* node;
    };
    if (!kids)
        return;
    NodeSet seen;
    if (root)
        seen.insert(root);
    std::vector<Level> levels{{kids, 0, root}};
    bool loggedDepth = false;
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next >= level.kids->count()) {
            levels.pop_back();
            continue;
        }
        KPPDFRef<KPPDFObject> kid = level.kids->value()[level.next++];
        auto node = KPPDFResolve<KPPDFObjectDictionary>(kid);
        KPPDFObjectDictionary::Source source;
        PageEntries entries;
        bool peeked = visit && node && node->peekEntries(kPageKeyNames, entries.values);
        KPPDFRef<KPPDFObject> type =
            peeked ? KPPDFObject::resolve(entries.values[kPageType]) : nullptr;
        KPPDFObjectName* typeName = type ? type->asName() : nullptr;
        // The source of what may be a page, before Type is looked up (which parses).
        if (visit && node && !node->isParsed() && !(typeName && typeName->value() == "Pages"))
            source = node->source();
        if (!peeked && node) {
            type = node->resolvedObjectForKey("Type");
            typeName = type ? type->asName() : nullptr;
        }
        // A null Type is no Type, as a reference to nothing is.
        if (!KPPDFObject::hasValue(type))
            type.reset();
        bool isPages = typeName && typeName->value() == "Pages";
        bool isPage = typeName && typeName->value() == "Page";
        if (node && !type) {
            // Type is required, but a node without it is still plainly one or the other.
            isPages = node->resolvedObjectForKey<KPPDFObjectArray>("Kids") != nullptr;
            isPage = !isPages;
            KPPDFLog("Page tree node %u %u R has no Type; taken as %s", node->objectNumber(),
                     node->generation(), isPages ? "Pages" : "Page");
        }
        if (!isPages && !isPage) {
            KPPDFLog("Expected Page or Pages object, found: %s", typeText(type).c_str());
            continue;
        }
        if (!seen.insert(node.get()).second) {
            bool ancestor = false;
            for (const Level& up : levels)
                ancestor = ancestor || up.node == node.get();
            KPPDFLog(ancestor ? "Page tree node %u %u R lists its own ancestor; skipped"
                              : "Page tree node %u %u R is listed twice; skipped",
                     node->objectNumber(), node->generation());
            continue;
        }
        if (isPage) {
            pageObjects.push_back(std::move(node));
            type.reset(); // an entry of the page, which the visitor may let go
            if (visit)
                visit(pageObjects.back(), std::move(source),
                      peeked && !pageObjects.back()->isParsed() ? &entries : nullptr);
            continue;
        }
        pagesObjects.push_back(kid);
        if (levels.size() >= static_cast<size_t>(KPPDFDocument::kMaxPageTreeDepth)) {
            if (!loggedDepth)
                KPPDFLog("Page tree deeper than %d levels; the nodes below are skipped",
                         KPPDFDocument::kMaxPageTreeDepth);
            loggedDepth = true;
            continue;
        }
        if (auto below = node->resolvedObjectForKey<KPPDFObjectArray>("Kids"))
            levels.push_back({std::move(below), 0, node.get()});
    }
}

// The key of a name tree entry or a destination name: a string's text or a name's.
bool keyText(const KPPDFRef<KPPDFObject>& object, std::string* key) {
    if (!object)
        return false;
    if (KPPDFObjectString* string = object->asString()) {
        *key = string->stringValue();
        return true;
    }
    if (KPPDFObjectName* name = object->asName()) {
        *key = name->value();
        return true;
    }
    return false;
}

KPPDFColor outlineColor(KPPDFObjectDictionary& item) {
    auto components = item.resolvedObjectForKey<KPPDFObjectArray>("C");
    if (!components)
        return KPPDFColor::blackColor();
    float rgb[3] = {0, 0, 0};
    for (size_t i = 0; i < 3; i++)
        if (KPPDFRef<KPPDFObject> component = components->resolvedObjectAtIndex(i))
            rgb[i] = component->realValue();
    return KPPDFColor::colorWithRed(rgb[0], rgb[1], rgb[2], 1.0f);
}

// True when node's Count says that all its kids are pages (so a kid can be taken for a page
// without reading it).
bool kidsAreAllPages(KPPDFObjectDictionary& node, KPPDFObjectArray& kids) {
    KPPDFRef<KPPDFObject> count = node.resolvedObjectForKey("Count");
    return count && count->objectType() == KPPDFObjectTypeInteger &&
           count->longLongValue() == static_cast<long long>(kids.count());
}

// True when node is plainly a Pages node, told without parsing it when it is unparsed: a page
// must stay unparsed for the walk, which reads it without parsing.
bool isPlainlyPagesNode(KPPDFObjectDictionary& node) {
    constexpr std::string_view kType[] = {"Type"};
    KPPDFRef<KPPDFObject> type;
    if (node.isParsed())
        type = node.resolvedObjectForKey("Type");
    else if (!node.peekEntries(kType, &type))
        return false;
    type = KPPDFObject::resolve(type);
    return type && type->asName() && type->asName()->value() == "Pages";
}

} // namespace

bool KPPDFDocument::declaredPageCount(uint32_t* count) {
    KPPDFRef<KPPDFObject> object =
        pagesObject_ ? pagesObject_->resolvedObjectForKey("Count") : nullptr;
    if (!object || !object->isNumber() || object->longLongValue() < 0)
        return false;
    *count = static_cast<uint32_t>(object->longLongValue());
    return true;
}

bool KPPDFDocument::prepPages() {
    pageIndexSize_ = SIZE_MAX;
    pages_.clear();
    if (!pagesObject_)
        return false;
    uint32_t declared = 0;
    bool countUsable = declaredPageCount(&declared);

    // Most pages of a large document are never looked at beyond their boxes, and a parsed
    // dictionary takes several times the room of its text: with the boxes cached, a page's
    // dictionary goes back to its text as soon as the walk has made the page, and is parsed
    // again when its entries are asked for. Strings of an encrypted file are decrypted as they
    // are read, so its dictionaries stay parsed.
    bool keepParsed = encryptionStatus_ != 0 || !encryptKey_.empty() || trailerHasEncrypt();
    bool changed = false;
    // The pages under one node inherit the same entries: what the node and those above it give
    // for each box and the rotation is looked up once per node. It is the same for each of its
    // pages, even in a broken tree whose chain of parents comes back through a page: that page
    // lacks the entry (its own would have been taken first), and its parent is the node the
    // lookup started from, where it only goes round again.
    struct Inherited {
        bool known = false;
        KPPDFRef<KPPDFObject> value;
    };
    KPPDFRef<KPPDFObjectDictionary> inheritedFrom;
    Inherited inherited[kPageRotate - kPageMediaBox + 1];
    auto makePage = [&](const KPPDFRef<KPPDFObjectDictionary>& dictionary,
                        KPPDFObjectDictionary::Source source, const PageEntries* entries) {
        if (countUsable && pages_.size() >= declared)
            return; // past Count: found, but not the document's
        KPPDFRef<KPPDFPage> page =
            KPPDFPage::pageWithDocument(this, static_cast<uint32_t>(pages_.size()), dictionary);
        if (entries && !entries->values[kPageImprints] && !keepParsed && !source.data.isNull()) {
            // Read without parsing the dictionary: its own entries are those the walk read.
            auto parent = KPPDFResolve<KPPDFObjectDictionary>(entries->values[kPageParent]);
            if (parent != inheritedFrom) {
                inheritedFrom = parent;
                for (Inherited& entry : inherited)
                    entry = Inherited();
            }
            auto lookup = [&](std::string_view key) -> KPPDFRef<KPPDFObject> {
                for (int k = kPageMediaBox; k <= kPageRotate; k++) {
                    if (key != kPageKeyNames[k])
                        continue;
                    if (KPPDFRef<KPPDFObject> own = KPPDFObject::resolve(entries->values[k]);
                        KPPDFObject::hasValue(own))
                        return own;
                    Inherited& entry = inherited[k - kPageMediaBox];
                    if (!entry.known) {
                        entry.value = KPPDFObjectDictionary::objectFromParentsForKey(
                            parent, key, dictionary.get());
                        entry.known = true;
                    }
                    return entry.value;
                }
                return KPPDFObjectDictionary::objectFromParentsForKey(parent, key,
                                                                      dictionary.get());
            };
            // Handed on through one reference, which the function object holds without
            // allocating (the lookup itself refers to half a dozen locals).
            if (page->cacheGeometry([&lookup](std::string_view key) { return lookup(key); }) &&
                dictionary->unparse(std::move(source))) {
                pages_.push_back(std::move(page));
                return;
            }
        }
        bool imprinted = page->setupImprints();
        changed |= imprinted;
        if (!imprinted && !keepParsed && !source.data.isNull() && page->cacheGeometry())
            dictionary->unparse(std::move(source));
        pages_.push_back(std::move(page));
    };
    KPPDFObjectList pagesObjects;
    std::vector<KPPDFRef<KPPDFObjectDictionary>> pageObjects;
    bool rootIsPage = pagesObject_->hasName("Type", "Page");
    if (rootIsPage) {
        // A catalogue whose Pages is a page itself: a one-page document.
        KPPDFLog("Page tree root is a Page; taken as the only page");
        pageObjects.push_back(pagesObject_);
        makePage(pagesObject_, {}, nullptr);
    } else {
        walkPageTree(pagesObject_.get(),
                     pagesObject_->resolvedObjectForKey<KPPDFObjectArray>("Kids"), pagesObjects,
                     pageObjects, makePage);
    }

    size_t found = pageObjects.size();
    if (!countUsable) {
        if (!rootIsPage)
            KPPDFLog("Page tree has no usable Count; using the %zu pages found", found);
    } else if (declared > found) {
        KPPDFLog("Page tree Count %u exceeds the %zu pages found; using those", declared, found);
    } else if (declared < found) {
        KPPDFLog("Page tree Count %u is below the %zu pages found; using the first %u", declared,
                 found, declared);
    }
    return changed;
}

std::vector<std::pair<uint32_t, uint32_t>> KPPDFDocument::forecastObjectStreams() {
    std::vector<std::pair<uint32_t, uint32_t>> order;
    KPPDFRef<KPPDFCompressedObjects> streams = compressedObjects_;
    auto rootKids =
        pagesObject_ ? pagesObject_->resolvedObjectForKey<KPPDFObjectArray>("Kids") : nullptr;
    if (!streams || !rootKids)
        return order;
    struct Level {
        KPPDFRef<KPPDFObjectArray> kids;
        size_t next;
        bool leaves; // the node's Count says all its kids are pages
    };
    std::vector<Level> levels{{rootKids, 0, kidsAreAllPages(*pagesObject_, *rootKids)}};
    std::unordered_map<uint32_t, size_t> listed; // stream, its place in order
    NodeSet seen{pagesObject_.get()};
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next >= level.kids->count()) {
            levels.pop_back();
            continue;
        }
        const KPPDFRef<KPPDFObject>& kid = level.kids->value()[level.next++];
        KPPDFObjectReference* reference = kid ? kid->asReference() : nullptr;
        KPPDFCompressedObjects::Location location;
        if (reference && !reference->value() &&
            streams->location(reference->objectNumber(), &location) &&
            !streams->isDecoded(location.stream)) {
            auto [place, added] = listed.try_emplace(location.stream, order.size());
            if (added)
                order.push_back({location.stream, 0});
            uint32_t& objects = order[place->second].second;
            objects = std::max(objects, location.index + 1);
            // A page: the walk reads it. A node below is read now (the walk would inflate its
            // stream next anyway), to see further.
            if (level.leaves)
                continue;
        }
        auto node = KPPDFResolve<KPPDFObjectDictionary>(kid);
        if (!node || !seen.insert(node.get()).second)
            continue;
        // Followed only when plainly a Pages node.
        if (!isPlainlyPagesNode(*node) || levels.size() >= static_cast<size_t>(kMaxPageTreeDepth))
            continue;
        if (auto below = node->resolvedObjectForKey<KPPDFObjectArray>("Kids")) {
            bool leaves = kidsAreAllPages(*node, *below);
            levels.push_back({std::move(below), 0, leaves});
        }
    }
    return order;
}

uint32_t KPPDFDocument::firstPageStream() {
    KPPDFRef<KPPDFCompressedObjects> streams = compressedObjects_;
    KPPDFRef<KPPDFObjectDictionary> node = pagesObject_;
    for (int depth = 0; streams && node && depth < kMaxPageTreeDepth; depth++) {
        auto kids = node->resolvedObjectForKey<KPPDFObjectArray>("Kids");
        if (!kids || kids->count() == 0)
            return 0;
        const KPPDFRef<KPPDFObject>& kid = kids->value()[0];
        KPPDFObjectReference* reference = kid ? kid->asReference() : nullptr;
        KPPDFCompressedObjects::Location location;
        if (!reference || reference->value() ||
            !streams->location(reference->objectNumber(), &location))
            return 0;
        // Below a node of pages alone, or at a kid that is not plainly a Pages node, the first
        // kid's stream is the one.
        if (kidsAreAllPages(*node, *kids))
            return location.stream;
        auto below = KPPDFResolve<KPPDFObjectDictionary>(kid);
        if (!below)
            return 0;
        if (!isPlainlyPagesNode(*below))
            return location.stream;
        node = std::move(below);
    }
    return 0;
}

void KPPDFDocument::processKids(const KPPDFRef<KPPDFObjectArray>& kids,
                                KPPDFObjectList& pagesObjects,
                                std::vector<KPPDFRef<KPPDFObjectDictionary>>& pageObjects) {
    walkPageTree(kids ? kids->directContainer() : nullptr, kids, pagesObjects, pageObjects);
}

void KPPDFDocument::processDests() {
    dests_.clear();
    destsRead_ = true;
    if (!rootObject_)
        return;
    if (auto dests = rootObject_->resolvedObjectForKey<KPPDFObjectDictionary>("Dests"))
        dests_ = dests->value();
    auto names = rootObject_->resolvedObjectForKey<KPPDFObjectDictionary>("Names");
    auto tree = names ? names->resolvedObjectForKey<KPPDFObjectDictionary>("Dests") : nullptr;
    if (tree) {
        // The name tree wins over the catalogue's Dests, entries of both are not merged.
        dests_.clear();
        processNameTree(tree, dests_);
    }
}

void KPPDFDocument::processNameTree(const KPPDFRef<KPPDFObjectDictionary>& node,
                                    KPPDFObjectMap& into) {
    struct Pending {
        KPPDFRef<KPPDFObjectDictionary> node;
        int depth;
    };
    // Kids are pushed last first so that they come off in order: a later duplicate key must
    // replace an earlier one.
    std::vector<Pending> pending{{node, 0}};
    NodeSet seen;
    bool loggedDepth = false;
    while (!pending.empty()) {
        Pending current = std::move(pending.back());
        pending.pop_back();
        if (!current.node)
            continue;
        if (!seen.insert(current.node.get()).second) {
            KPPDFLog("Name tree node %u %u R is reached twice; skipped",
                     current.node->objectNumber(), current.node->generation());
            continue;
        }
        if (auto kids = current.node->resolvedObjectForKey<KPPDFObjectArray>("Kids")) {
            if (current.depth >= kMaxNameTreeDepth) {
                if (!loggedDepth)
                    KPPDFLog("Name tree deeper than %d levels; the nodes below are skipped",
                             kMaxNameTreeDepth);
                loggedDepth = true;
                continue;
            }
            KPPDFObjectList& list = kids->value();
            for (size_t i = list.size(); i-- > 0;)
                pending.push_back(
                    {KPPDFResolve<KPPDFObjectDictionary>(list[i]), current.depth + 1});
            continue;
        }
        auto names = current.node->resolvedObjectForKey<KPPDFObjectArray>("Names");
        if (!names)
            continue;
        KPPDFObjectList& list = names->value();
        std::string key;
        for (size_t i = 0; i < list.size(); i += 2) {
            if (!keyText(KPPDFObject::resolve(list[i]), &key)) {
                KPPDFLog("Name tree key is not a string; entry skipped");
                continue;
            }
            KPPDFRef<KPPDFObject> value =
                i + 1 < list.size() && list[i + 1] ? list[i + 1] : KPPDFObjectNull::nullObject();
            into.insert_or_assign(key, std::move(value));
        }
    }
}

KPPDFRef<KPPDFObject> KPPDFDocument::resolveDestination(const KPPDFRef<KPPDFObject>& object) {
    std::string key;
    if (!object || (!object->asString() && !object->asName()) || !keyText(object, &key))
        return object;
    KPPDFObjectMap& names = dests();
    auto found = names.find(key);
    if (found == names.end())
        return nullptr;
    KPPDFRef<KPPDFObject> target = KPPDFObject::resolve(found->second);
    if (KPPDFObjectDictionary* dictionary = target ? target->asDictionary() : nullptr)
        target = dictionary->resolvedObjectForKey("D");
    return target;
}

void KPPDFDocument::processOutline() {
    if (outlines_ || !rootObject_)
        return;
    outlineRead_ = true;
    auto outlines = rootObject_->resolvedObjectForKey<KPPDFObjectDictionary>("Outlines");
    if (!outlines)
        return;
    outlines_ = KPPDFOutline::outlineWithTitle("", 0, KPPDFColor::blackColor(), nullptr);
    processOutlineLevel(outlines->resolvedObjectForKey<KPPDFObjectDictionary>("First"), outlines_);
}

void KPPDFDocument::processOutlineLevel(const KPPDFRef<KPPDFObjectDictionary>& first,
                                        const KPPDFRef<KPPDFOutline>& parent) {
    struct Chain {
        KPPDFRef<KPPDFObjectDictionary> item; // the next item of this level, or null
        KPPDFRef<KPPDFOutline> parent;
    };
    if (!parent)
        return;
    // One entry per level being read; an item's children are read before its Next. Every
    // item is taken once, which stops Next chains that loop and First entries that point
    // back up; the level's own parent dictionary counts as taken for the same reason.
    std::vector<Chain> chains{{first, parent}};
    NodeSet seen;
    if (first)
        if (auto above = first->resolvedObjectForKey<KPPDFObjectDictionary>("Parent"))
            seen.insert(above.get());
    bool loggedDepth = false;
    while (!chains.empty()) {
        Chain& chain = chains.back();
        KPPDFRef<KPPDFObjectDictionary> item = std::move(chain.item);
        if (!item) {
            chains.pop_back();
            continue;
        }
        if (!seen.insert(item.get()).second) {
            KPPDFLog("Outline item %u %u R is reached twice; its chain ends there",
                     item->objectNumber(), item->generation());
            chains.pop_back();
            continue;
        }
        std::string title;
        if (auto string = item->resolvedObjectForKey<KPPDFObjectString>("Title"))
            title = string->stringValue();
        KPPDFRef<KPPDFObject> flags = item->resolvedObjectForKey("F");
        auto outline = KPPDFOutline::outlineWithTitle(
            std::move(title),
            flags && flags->isNumber() ? static_cast<int32_t>(flags->longLongValue()) : 0,
            outlineColor(*item), KPPDFDestination::destinationFromDictionary(item, *this));
        chain.parent->addChild(outline);
        chain.item = item->resolvedObjectForKey<KPPDFObjectDictionary>("Next");
        auto child = item->resolvedObjectForKey<KPPDFObjectDictionary>("First");
        if (!child)
            continue;
        if (chains.size() >= static_cast<size_t>(kMaxOutlineDepth)) {
            if (!loggedDepth)
                KPPDFLog("Outline deeper than %d levels; the items below are skipped",
                         kMaxOutlineDepth);
            loggedDepth = true;
            continue;
        }
        chains.push_back({std::move(child), outline});
    }
}

KPPDFRef<KPPDFPage> KPPDFDocument::pageForReference(const KPPDFRef<KPPDFObject>& object) {
    if (!object)
        return nullptr;
    uint32_t number = object->objectNumber();
    uint32_t generation = object->generation();
    if (number == 0) {
        KPPDFObjectReference* reference = object->asReference();
        KPPDFRef<KPPDFObject> target = reference ? reference->value() : nullptr;
        if (!target)
            return nullptr;
        number = target->objectNumber();
        generation = target->generation();
    }
    // Pages made in memory have number 0 and are never named by a reference.
    if (number == 0)
        return nullptr;
    // Outlines and links ask for thousands of pages: an index by object number answers them,
    // and is made again whenever an answer shows that the page list has changed since.
    auto matches = [&](size_t index) {
        const auto& page = pages_[index];
        const auto& dictionary = page ? page->pageDictionary() : nullptr;
        return dictionary && dictionary->objectNumber() == number &&
               dictionary->generation() == generation;
    };
    uint64_t key = (uint64_t(number) << 32) | generation;
    for (int attempt = 0; attempt < 2; attempt++) {
        if (attempt == 1 || pageIndexSize_ != pages_.size()) {
            if (attempt == 1 && pageIndexSize_ == pages_.size() && !pageIndexStale_)
                break;
            pageIndex_.clear();
            for (size_t i = 0; i < pages_.size(); i++)
                if (pages_[i] && pages_[i]->pageDictionary())
                    pageIndex_.emplace((uint64_t(pages_[i]->pageDictionary()->objectNumber()) << 32) |
                                           pages_[i]->pageDictionary()->generation(),
                                       static_cast<uint32_t>(i));
            pageIndexSize_ = pages_.size();
            pageIndexStale_ = false;
        }
        auto found = pageIndex_.find(key);
        if (found != pageIndex_.end() && found->second < pages_.size() && matches(found->second))
            return pages_[found->second];
        if (found != pageIndex_.end())
            pageIndexStale_ = true;
        else if (attempt == 0)
            break;
    }
    return nullptr;
}

KPPDFRef<KPPDFPage> KPPDFDocument::pageAtIndex(uint32_t index) const {
    return index < pages_.size() ? pages_[index] : nullptr;
}

void KPPDFDocument::readOutlineBeforePageEdit() {
    // Outline items lead to pages of the list as it was opened; read before it changes.
    if (!outlineRead_)
        processOutline();
}

void KPPDFDocument::insertPage(KPPDFRef<KPPDFPage> page, uint32_t index) {
    readOutlineBeforePageEdit();
    pageIndexSize_ = SIZE_MAX;
    if (!page)
        return;
    if (index > pages_.size()) {
        KPPDFLog("Page index %u is past the %zu pages; the page is appended", index, pages_.size());
        index = static_cast<uint32_t>(pages_.size());
    }
    pages_.insert(pages_.begin() + index, std::move(page));
}

void KPPDFDocument::removePageAtIndex(uint32_t index) {
    readOutlineBeforePageEdit();
    pageIndexSize_ = SIZE_MAX;
    if (index >= pages_.size()) {
        KPPDFLog("No page at index %u of %zu", index, pages_.size());
        return;
    }
    pages_.erase(pages_.begin() + index);
}

void KPPDFDocument::setPagesFromArray(std::vector<KPPDFRef<KPPDFPage>> pages) {
    readOutlineBeforePageEdit();
    pageIndexSize_ = SIZE_MAX;
    pages_ = std::move(pages);
}

bool KPPDFDocument::hasFields() {
    for (const auto& page : pages_) {
        if (!page)
            continue;
        for (const auto& imprint : page->imprints())
            if (imprint && imprint->imprintType() == KPPDFImprintTypeAnnotation &&
                imprint->annotationType() == KPPDFAnnotationTypeWidget)
                return true;
    }
    return false;
}

KPPDFSize KPPDFDocument::pageSizeForPage(KPPDFPage& page) {
    KPPDFRect box = page.mediaBox();
    page.cropBox(&box);
    uint32_t rotation = 0;
    if (page.rotate(&rotation) && (rotation == 90 || rotation == 270))
        return {box.size.height, box.size.width};
    return box.size;
}

KPPDFAffineTransform KPPDFDocument::pageTransformForRotation(float rotation, KPPDFSize size) {
    if (!(rotation > 0))
        return KPPDFAffineTransform();
    // Quarter turns are exact, so a rotated page lands on whole coordinates.
    float cosine, sine;
    if (rotation == 90) {
        cosine = 0, sine = 1;
    } else if (rotation == 180) {
        cosine = -1, sine = 0;
    } else if (rotation == 270) {
        cosine = 0, sine = -1;
    } else {
        double radians = double(rotation) * M_PI / 180.0;
        cosine = static_cast<float>(std::cos(radians));
        sine = static_cast<float>(std::sin(radians));
    }
    KPPDFAffineTransform turn{cosine, sine, -sine, cosine, 0, 0};
    KPPDFAffineTransform shift;
    if (rotation == 90)
        shift.ty = -size.height;
    else if (rotation == 180)
        shift.tx = -size.width, shift.ty = -size.height;
    else if (rotation == 270)
        shift.tx = -size.width;
    // Translated first, then turned.
    return shift.concat(turn);
}
