#pragma once
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"

// Exit statuses of the kppdf command: 0 success, 2 wrong arguments, and one status for each
// reason a file cannot be used.
enum : int {
    KPPDFToolExitOK = 0,
    KPPDFToolExitUnreadable = 1,
    KPPDFToolExitUsage = 2,
    KPPDFToolExitPasswordNeeded = 3,
    KPPDFToolExitUnsupportedSecurity = 4,
};

// What the subcommands share: their common options and the exit status their run sets.
struct KPPDFToolContext {
    std::string file;
    std::string password;
    bool json = false;
    bool verbose = false;
    int status = KPPDFToolExitOK;
    // The documents the command opened, kept to the end (see main).
    std::vector<KPPDFRef<KPPDFDocument>> opened;
};

// Adds FILE (- for standard input), --password and --verbose to a subcommand.
void KPPDFToolAddFileOptions(CLI::App* command, KPPDFToolContext& context);
// Opens context.file with context.password; on failure prints one line on stderr, sets
// context.status and returns null.
KPPDFRef<KPPDFDocument> KPPDFToolOpenDocument(KPPDFToolContext& context);
// Writes the complete rewrite of document to output ("-" for standard output), with progress
// on a terminal; returns the exit status. With workingBytes, the document's working bytes are
// written as they stand instead (for a document known to be a complete file already).
int KPPDFToolWriteDocument(KPPDFToolContext& context, KPPDFDocument& document,
                           const std::string& output, bool workingBytes = false);
// "kppdf: FILE: message" on stderr.
void KPPDFToolFail(const std::string& file, const std::string& message);
// True when stderr is a terminal (progress is shown only then).
bool KPPDFToolShowsProgress();

// Each file of the command registers its subcommands; a subcommand's callback stores its exit
// status in context.status.
void addInfoCommands(CLI::App& app, KPPDFToolContext& context);
void addTextCommands(CLI::App& app, int& exitStatus);
void addSaveCommands(CLI::App& app, KPPDFToolContext& context);
void addImprintCommands(CLI::App& app, KPPDFToolContext& context);
