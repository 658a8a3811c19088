#pragma once
#include <functional>
#include <string>
#include <string_view>

// Takes bytes in order; false stops the writing.
using KPPDFByteSink = std::function<bool(std::string_view bytes)>;

// Writes a file by handing write a sink for its bytes. The bytes go to a new file beside path,
// which replaces path only once write returned true and the new file is complete: the old
// file stays whole until then (it may be the very file being read, mapped in memory), and a
// failed write leaves no half file behind. False, with a log line, on failure.
bool KPPDFWriteFileReplacing(const std::string& path,
                             const std::function<bool(const KPPDFByteSink& sink)>& write);
