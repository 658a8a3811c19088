#pragma once
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

// Runs external tools (qpdf, pdftotext, pdftoppm) as oracles, and writes temporary files.
namespace tool_runner {

inline bool available(const std::string& tool) {
    std::string command = "command -v " + tool + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

// Runs a shell command; returns its exit status and puts what it printed on stdout in *output.
inline int run(const std::string& command, std::string* output = nullptr) {
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (!pipe)
        return -1;
    std::array<char, 65536> buffer;
    std::string text;
    size_t n;
    while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        text.append(buffer.data(), n);
    int status = pclose(pipe);
    if (output)
        *output = std::move(text);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline std::string quote(const std::string& path) {
    std::string quoted = "'";
    for (char c : path)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// A fresh temporary folder, removed with the object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "kppdf-test-XXXXXX").string();
        path_ = mkdtemp(pattern.data()) ? pattern : std::string();
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    bool write(const std::string& name, const std::string& bytes) const {
        std::ofstream out(file(name), std::ios::binary);
        return static_cast<bool>(
            out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
    }

private:
    std::string path_;
};

// Writes bytes to a temporary file and expects `qpdf --check` to accept it; without qpdf,
// nothing is checked.
inline void expectQpdfAccepts(const std::string& bytes) {
    if (!available("qpdf"))
        return;
    TemporaryFolder folder;
    ASSERT_TRUE(folder.write("checked.pdf", bytes));
    std::string output;
    EXPECT_EQ(run("qpdf --check " + quote(folder.file("checked.pdf")), &output), 0) << output;
}

} // namespace tool_runner
