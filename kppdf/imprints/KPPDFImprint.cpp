#include "kppdf/imprints/KPPDFImprint.h"

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/platform/KPPDFLog.h"

KPPDFImprint::~KPPDFImprint() = default;

KPPDFRef<KPPDFImprint> KPPDFImprint::imprintWithData(const KPPDFData& data, KPPDFPoint location) {
    auto imprint = std::make_shared<KPPDFImprint>();
    // The result code is not needed: a document that did not open is simply null.
    int32_t result = 0;
    imprint->document_ = KPPDFDocument::documentWithData(data, &result);
    imprint->location_ = location;
    return imprint;
}

void KPPDFImprint::setDictionary(std::optional<KPPDFPropertyList> dictionary) {
    if (dictionary && !dictionary->isDictionary()) {
        KPPDFLog("Imprint properties must be a dictionary; taken as none");
        dictionary.reset();
    }
    const KPPDFPropertyList* filename =
        dictionary_ ? dictionary_->objectForKey(kFilenameKey) : nullptr;
    if (filename) {
        if (!dictionary)
            dictionary = KPPDFPropertyList::dictionary();
        dictionary->setObject(*filename, kFilenameKey);
    }
    dictionary_ = std::move(dictionary);
}

KPPDFRef<KPPDFImprint> KPPDFImprint::copy() const {
    auto imprint = std::make_shared<KPPDFImprint>();
    copyInto(*imprint);
    return imprint;
}

void KPPDFImprint::copyInto(KPPDFImprint& copy) const {
    copy.location_ = location_;
    copy.size_ = size_;
    copy.document_ = document_;
    copy.setDictionary(dictionary_);
}
