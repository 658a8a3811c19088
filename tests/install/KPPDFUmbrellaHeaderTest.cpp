// The umbrella header compiles on its own and names every installed header.
#include "kppdf/kppdf.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

TEST(KPPDFUmbrellaHeader, IncludesEveryPublicHeader) {
    std::filesystem::path root = KPPDF_SOURCE_DIR;
    std::ifstream in(root / "kppdf" / "kppdf.h");
    std::string umbrella((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(umbrella.empty());
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "kppdf")) {
        std::filesystem::path relative = std::filesystem::relative(entry.path(), root);
        if (entry.path().extension() != ".h" || relative == "kppdf/kppdf.h" ||
            relative.string().find("/internal/") != std::string::npos)
            continue;
        EXPECT_NE(umbrella.find("#include \"" + relative.string() + "\""), std::string::npos)
            << relative << " is missing from kppdf/kppdf.h";
    }
}
