#pragma once
#include <string>
#include <vector>

// Finds the data files the library ships (blankpage.pdf, CMaps). Folders are searched in
// order: $KPPDF_RESOURCES, the installed data folder, the source tree's resources/; CMaps are
// then also looked for in poppler-data's folder.
class KPPDFResources {
public:
    KPPDFResources() = delete;

    // Path of "<name>.<type>" (just "<name>" when type is empty) in the first folder holding
    // it as a regular file; "" when none does or when name or type contains "/" or "..".
    static std::string pathForResource(const std::string& name, const std::string& type);
    // Path of "CMaps/<name>" in the folders above, then of poppler-data's
    // "<Registry>-<Ordering>/<name>" for a name "<Registry>-<Ordering>-UCS2" (the folder is the
    // name without its last dash part), then of "*/<name>" in poppler-data's folders (first in
    // name order); "" when missing or when the name contains "/" or "..".
    static std::string pathForCMap(const std::string& name);

    // The folders searched, in order, that are set (they may not exist).
    static std::vector<std::string> searchFolders();

    static constexpr const char* kPopplerCMapFolder = "/usr/share/poppler/cMap";
};
