#include "kppdf/platform/KPPDFResources.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <sys/stat.h>

namespace {

// A name that cannot leave its folder and that the C library reads whole.
bool isSafeName(const std::string& name) {
    return name.find('/') == std::string::npos && name.find("..") == std::string::npos &&
           name.find('\0') == std::string::npos;
}

bool isRegularFile(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string firstExisting(const std::string& relativePath) {
    for (const std::string& folder : KPPDFResources::searchFolders()) {
        std::string path = folder + "/" + relativePath;
        if (isRegularFile(path))
            return path;
    }
    return {};
}

std::vector<std::string> subfolderNames(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir)
        return names;
    while (struct dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(std::move(name));
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

std::vector<std::string> KPPDFResources::searchFolders() {
    std::vector<std::string> folders;
    const char* fromEnvironment = std::getenv("KPPDF_RESOURCES");
    if (fromEnvironment && *fromEnvironment)
        folders.emplace_back(fromEnvironment);
#ifdef KPPDF_INSTALL_DATADIR
    folders.emplace_back(KPPDF_INSTALL_DATADIR);
#endif
#ifdef KPPDF_SOURCE_DIR
    folders.emplace_back(KPPDF_SOURCE_DIR "/resources");
#endif
    return folders;
}

std::string KPPDFResources::pathForResource(const std::string& name, const std::string& type) {
    if (name.empty() || !isSafeName(name) || !isSafeName(type))
        return {};
    return firstExisting(type.empty() ? name : name + "." + type);
}

std::string KPPDFResources::pathForCMap(const std::string& name) {
    if (name.empty() || !isSafeName(name))
        return {};
    std::string path = firstExisting("CMaps/" + name);
    if (!path.empty())
        return path;
    const std::string poppler = kPopplerCMapFolder;
    size_t lastDash = name.rfind('-');
    if (lastDash != std::string::npos && lastDash > 0) {
        path = poppler + "/" + name.substr(0, lastDash) + "/" + name;
        if (isRegularFile(path))
            return path;
    }
    for (const std::string& folder : subfolderNames(poppler)) {
        path = poppler + "/" + folder + "/" + name;
        if (isRegularFile(path))
            return path;
    }
    return {};
}
