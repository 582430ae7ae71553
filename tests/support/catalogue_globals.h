#pragma once
// The process-wide objects a catalogue test needs, as start-up makes them, with the storage
// folder in a sandbox; released again when the object goes.

#include "core/globals.h"
#include "core/master_layout.h"

#include "sandbox.h"

struct CatalogueGlobals {
    explicit CatalogueGlobals(const SandboxDir &box)
    {
        pw::FileStoragePath = box.path();
        pw::AppSettings = std::make_unique<pw::Settings>();
        pw::AppSettings->LoadDefaultSettings();
        pw::MakeColumnList();
        pw::FillFilterPatterns();
        pw::PdfPageCounter = std::make_unique<::PdfPageCounter>();
        pw::TiffPageCounter = std::make_unique<::TiffPageCounter>();
    }
    ~CatalogueGlobals()
    {
        pw::AppSettings.reset();
        pw::ColumnList.reset();
        pw::FileStoragePath.clear();
    }
};
