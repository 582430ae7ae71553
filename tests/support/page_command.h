#pragma once
// A run of one of pagewright-batch's page commands in this process, with what it printed.

#include "core/progress.h"
#include "engine/page_batch.h"

#include "recording_ui.h"

#include <gtest/gtest.h>

#include <QStringList>

struct PageRun {
    int status = -1;
    QStringList out, err;
};

inline PageRun pageCommand(const QStringList &args)
{
    PageRun r;
    RecordingUi ui;
    // Every complaint names the program first; the tests compare what follows.
    const QString program = "pagewright-batch: ";
    pw::NoProgress progress;
    const pw::BatchOutput io{[&](const QString &l) { r.out << l; },
                             [&](const QString &l) {
                                 EXPECT_TRUE(l.startsWith(program)) << l.toStdString();
                                 r.err << l.mid(program.size());
                             },
                             [](const QString &) {}, progress};
    r.status = pw::RunBatchPageCommand(ui, args, io);
    return r;
}
