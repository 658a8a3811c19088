#include "kppdf/document/KPPDFOutline.h"

#include <cstdio>

#include "kppdf/document/KPPDFDestination.h"

KPPDFOutline::KPPDFOutline(std::string title, int32_t flags, const KPPDFColor& color,
                           KPPDFRef<KPPDFDestination> destination)
    : title_(std::move(title)), flags_(flags), destination_(std::move(destination)) {
    if (color.red() != 0 || color.green() != 0 || color.blue() != 0)
        color_ = color;
}

KPPDFRef<KPPDFOutline> KPPDFOutline::outlineWithTitle(std::string title, int32_t flags,
                                                      const KPPDFColor& color,
                                                      KPPDFRef<KPPDFDestination> destination) {
    return std::make_shared<KPPDFOutline>(std::move(title), flags, color, std::move(destination));
}

void KPPDFOutline::addChild(KPPDFRef<KPPDFOutline> child) {
    if (!child)
        return;
    children_.push_back(std::move(child));
}

std::string KPPDFOutline::description() const {
    std::string text = "<KPPDFOutline \"" + title_ + "\" flags:" + std::to_string(flags_);
    text += " color:" + (color_ ? color_->description() : std::string("black"));
    text += " destination:" + (destination_ ? destination_->description() : std::string("none"));
    text += " children:" + std::to_string(children_.size()) + ">";
    return text;
}
