#pragma once
// The error report of a batch run: its sections as text, and its saving as rich text.

#include <QByteArray>
#include <QString>

namespace pw {

class UiServices;

// One section as AddError appends it: the title between two lines of 51 "=", the heading
// between two lines of 51 "-", an empty line, the body, an empty line; each line ends in
// CR LF.
QString ErrorReportSection(const QString &title, const QString &heading, const QString &body);

// `text` as an RTF document that a word processor opens with the same text: one paragraph per
// line (CR LF, LF or CR), in a fixed-pitch font so that the separator lines line up. "\",
// "{" and "}" are escaped, tabs kept, and characters beyond 7-bit ASCII written as Unicode.
QByteArray RichTextDocument(const QString &text);

// cmdSave_Click: asks where to save, then writes `text` there as rich text, whole or not at
// all. A cancelled prompt does nothing; a failed write is logged.
void SaveErrorReport(UiServices &ui, const QString &text);

} // namespace pw
