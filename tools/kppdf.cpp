// The kppdf command: look inside PDF files and change them with the library.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <string>

#include "kppdf/document/KPPDFDocumentSaveProgress.h"
#include "kppdf/platform/KPPDFFileOutput.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFNotificationCenter.h"
#include "tools/KPPDFTool.h"

void KPPDFToolFail(const std::string& file, const std::string& message) {
    std::fprintf(stderr, "kppdf: %s: %s\n", file.c_str(), message.c_str());
}

bool KPPDFToolShowsProgress() { return isatty(STDERR_FILENO) != 0; }

void KPPDFToolAddFileOptions(CLI::App* command, KPPDFToolContext& context) {
    command->add_option("FILE", context.file, "PDF file (- for standard input)")->required();
    command->add_option("--password", context.password, "user or owner password");
    command->add_flag("-v,--verbose", context.verbose, "show the library's log lines");
}

int KPPDFToolWriteDocument(KPPDFToolContext& context, KPPDFDocument& document, const std::string& output,
                           bool workingBytes) {
    uint64_t observer = 0;
    if (KPPDFToolShowsProgress()) {
        observer = KPPDFNotificationCenter::defaultCenter().addObserver(
            KPPDFDocumentSaveProgress,
            [&document](const std::string&, const void* object,
                        const std::map<std::string, double>& info) {
                if (object != &document)
                    return;
                auto found = info.find("Percentage");
                std::fprintf(stderr, "\rkppdf: writing %3.0f%%",
                             found == info.end() ? 0.0 : found->second * 100.0);
            });
    }
    // Written as it is made, so the new file is never whole in memory; a file replaces the
    // output only once complete (the output may be the very file being read).
    bool sinkFailed = false;
    bool started = false;
    bool produced = false;
    auto produce = [&](const KPPDFByteSink& sink) {
        started = true;
        KPPDFByteSink counted = [&](std::string_view bytes) {
            sinkFailed = !sink(bytes);
            return !sinkFailed;
        };
        produced = workingBytes ? !document.docData().empty() && counted(document.docData().view())
                                : document.writeDataWithImprints(counted);
        return produced;
    };
    bool wrote = false;
    if (output == "-") {
        wrote = produce([](std::string_view bytes) {
                    return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
                }) &&
                std::fflush(stdout) == 0;
    } else {
        wrote = KPPDFWriteFileReplacing(output, produce);
    }
    if (observer) {
        KPPDFNotificationCenter::defaultCenter().removeObserver(observer);
        std::fprintf(stderr, "\rkppdf: writing 100%%\n");
    }
    if (started && !produced && !sinkFailed) {
        KPPDFToolFail(context.file, "the document has no catalog to write");
        return KPPDFToolExitUnreadable;
    }
    if (!wrote) {
        KPPDFToolFail(output, "cannot write the file");
        return KPPDFToolExitUnreadable;
    }
    return KPPDFToolExitOK;
}

KPPDFRef<KPPDFDocument> KPPDFToolOpenDocument(KPPDFToolContext& context) {
    // The library's log lines are for developers; the command shows them only when asked.
    if (!context.verbose)
        KPPDFSetLogHandler([](const std::string&) {});
    KPPDFData data = KPPDFData::dataWithContentsOfFile(context.file == "-" ? "/dev/stdin"
                                                                           : context.file);
    if (data.isNull()) {
        KPPDFToolFail(context.file, "cannot read the file");
        context.status = KPPDFToolExitUnreadable;
        return nullptr;
    }
    int32_t result = KPPDFDocumentNotPDF;
    KPPDFRef<KPPDFDocument> document = KPPDFDocument::documentWithData(data, &result);
    if (document && context.file != "-")
        document->setPath(context.file);
    if (result == KPPDFDocumentPasswordNeeded && document && !context.password.empty() &&
        document->validatePassword(context.password) == 0)
        result = KPPDFDocumentOpened;
    if (result == KPPDFDocumentOpened && document) {
        context.opened.push_back(document);
        return document;
    }
    switch (result) {
    case KPPDFDocumentPasswordNeeded:
        KPPDFToolFail(context.file, context.password.empty() ? "needs a password (use --password)"
                                                             : "the password is not right");
        context.status = KPPDFToolExitPasswordNeeded;
        break;
    case KPPDFDocumentUnsupportedSecurity:
        KPPDFToolFail(context.file, "encrypted with a security handler that is not supported");
        context.status = KPPDFToolExitUnsupportedSecurity;
        break;
    default:
        KPPDFToolFail(context.file, "not a PDF file");
        context.status = KPPDFToolExitUnreadable;
    }
    return nullptr;
}


int main(int argc, char** argv) {
    CLI::App app{"kppdf: look inside PDF files and change them"};
    app.require_subcommand(1);
    KPPDFToolContext context;
    addInfoCommands(app, context);
    addTextCommands(app, context.status);
    addSaveCommands(app, context);
    addImprintCommands(app, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return KPPDFToolExitUsage;
    }
#ifdef NDEBUG
    // Everything is written by now: the documents' memory goes back to the system with the
    // process, without taking tens of thousands of objects apart one by one first (a few
    // milliseconds for a large file). Debug builds tear down, so that leak checks see it all.
    std::cout.flush();
    std::fflush(nullptr);
    std::_Exit(context.status);
#else
    return context.status;
#endif
}
