#pragma once
// Searchable PDFs made afterwards: the pages of a PDF that show no text are rendered, read by
// text recognition and given an invisible text layer, and the file is rewritten in place. The
// pages' own content, their images included, stays as it was.

#include "core/progress.h"

#include <QString>
#include <QStringList>

#include <functional>

namespace pw {

struct TextLayerOutcome {
    QString file;
    QString failure;    // "" when the file was done
    int pagesRead = 0;  // pages that were given a text layer
    int pagesShown = 0; // pages left alone because they show text already
    QString sameAs;     // an earlier input that is this very file (a link, or named twice)
};

// "" when `language` ("eng", "deu+eng") can be read, else why not, naming the package to
// install.
QString CheckOcrLanguage(const QString &language);

// Gives the pages of `files` that show no text a layer read in `language`: the pages of one
// file, and of the next files, are read on every core at once, and `done` hears of each file
// in the order given. A file is rewritten whole or not at all. Stops before the next file when
// `progress` asks to.
void AddTextLayers(const QStringList &files, const QString &language, const QString &password,
                   Progress &progress, const std::function<void(const TextLayerOutcome &)> &done);

} // namespace pw
