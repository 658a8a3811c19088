// kppdf save, decrypt, encrypt, stamp and annots: writing files and their overlays.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "kppdf/document/KPPDFDocumentSaveProgress.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFNotificationCenter.h"
#include "tools/KPPDFTool.h"

namespace {
struct SaveOptions {
    std::string output;
    std::string user;
    std::string owner;
    long long permissions = -4;
    std::string stamp;
    uint32_t page = 1;
    std::string at = "0,0";
    bool flatten = false;
};

// Writes the document to the output path ("-" for standard output), with progress on a
// terminal.
int save(KPPDFToolContext& context, KPPDFDocument& document, const std::string& output) {
    uint64_t observer = 0;
    if (KPPDFToolShowsProgress()) {
        observer = KPPDFNotificationCenter::defaultCenter().addObserver(
            KPPDFDocumentSaveProgress,
            [&document](const std::string&, const void* object, const std::map<std::string, double>& info) {
                if (object != &document)
                    return;
                auto found = info.find("Percentage");
                std::fprintf(stderr, "\rkppdf: writing %3.0f%%",
                             found == info.end() ? 0.0 : found->second * 100.0);
            });
    }
    std::string bytes = document.currentDataWithImprints(true);
    if (observer) {
        KPPDFNotificationCenter::defaultCenter().removeObserver(observer);
        std::fprintf(stderr, "\rkppdf: writing 100%%\n");
    }
    if (bytes.empty()) {
        KPPDFToolFail(context.file, "the document has no catalog to write");
        return KPPDFToolExitUnreadable;
    }
    if (output == "-") {
        std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return std::cout.good() ? KPPDFToolExitOK : KPPDFToolExitUnreadable;
    }
    std::ofstream file(output, std::ios::binary | std::ios::trunc);
    if (!file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())) || !file.flush()) {
        KPPDFToolFail(output, "cannot write the file");
        return KPPDFToolExitUnreadable;
    }
    return KPPDFToolExitOK;
}

int commandSave(KPPDFToolContext& context, SaveOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    return save(context, *document, options.output);
}

int commandDecrypt(KPPDFToolContext& context, SaveOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    document->removeEncryption();
    return save(context, *document, options.output);
}

int commandEncrypt(KPPDFToolContext& context, SaveOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    document->setUserPassword(options.user, options.owner, static_cast<int32_t>(options.permissions));
    return save(context, *document, options.output);
}
} // namespace

void addSaveCommands(CLI::App& app, KPPDFToolContext& context) {
    static SaveOptions options;
    CLI::App* saveCommand = app.add_subcommand("save", "write the document as a complete new file");
    KPPDFToolAddFileOptions(saveCommand, context);
    saveCommand->add_option("OUT", options.output, "output file (- for standard output)")->required();
    saveCommand->callback([&context] { context.status = commandSave(context, options); });

    CLI::App* decrypt = app.add_subcommand("decrypt", "write the document without encryption");
    KPPDFToolAddFileOptions(decrypt, context);
    decrypt->add_option("OUT", options.output, "output file (- for standard output)")->required();
    decrypt->callback([&context] { context.status = commandDecrypt(context, options); });

    CLI::App* encrypt = app.add_subcommand("encrypt", "write the document encrypted (RC4)");
    KPPDFToolAddFileOptions(encrypt, context);
    encrypt->add_option("OUT", options.output, "output file (- for standard output)")->required();
    encrypt->add_option("--user", options.user, "user password")->required();
    encrypt->add_option("--owner", options.owner, "owner password")->required();
    encrypt->add_option("--permissions", options.permissions, "permission bits (P)");
    encrypt->callback([&context] { context.status = commandEncrypt(context, options); });
}
