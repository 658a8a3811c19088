#pragma once

// The name of the notification a document posts on the default notification centre after each
// page it writes into a new file. Its user info holds "Percentage": the index of the page just
// written divided by the page count of the old page tree.
extern const char KPPDFDocumentSaveProgress[];
