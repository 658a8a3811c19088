// kppdf save, decrypt and encrypt: complete rewrites of a file.
#include <string>

#include "tools/KPPDFTool.h"

namespace {
struct SaveOptions {
    std::string output;
    std::string user;
    std::string owner;
    long long permissions = -4;
};

int commandSave(KPPDFToolContext& context, SaveOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    return KPPDFToolWriteDocument(context, *document, options.output);
}

int commandDecrypt(KPPDFToolContext& context, SaveOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    document->removeEncryption();
    // An encrypted file was decrypted into a complete plain file when it was opened; nothing
    // has changed since, so that file is the answer (a rewrite of it gives the same bytes).
    return KPPDFToolWriteDocument(context, *document, options.output,
                                  document->decryptedAtOpening());
}

int commandEncrypt(KPPDFToolContext& context, SaveOptions& options) {
    KPPDFRef<KPPDFDocument> document = KPPDFToolOpenDocument(context);
    if (!document)
        return context.status;
    document->setUserPassword(options.user, options.owner, static_cast<int32_t>(options.permissions));
    return KPPDFToolWriteDocument(context, *document, options.output);
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
