// Reads the records of a large XML file one at a time, without loading the file.
//
//   example_scan_records [FILE.xml]
//
// Without an argument it first writes a sample file of 20,000 <rec> records into the
// temporary directory. Each ReadNextFragment call returns the next <rec ...>...</rec>
// stretch (the begin marker also matches the tag with attributes) and remembers where it
// ended, so memory use stays at one 64 KiB chunk plus the record, whatever the file's size.
#include <cstdio>
#include <string>

#include "fileaccess/ClsFileAccess.h"

// Prints why the last call on `fa` failed: every method keeps its account in the object's log.
static int fail(ClsFileAccess& fa, const char* what) {
    XString log;
    fa.get_LastErrorText(log);
    std::fprintf(stderr, "%s failed:\n%s\n", what, log.getUtf8());
    return 1;
}

// Writes <root> with `count` records through the object's own append methods.
static bool writeSample(ClsFileAccess& fa, XString& path, int count) {
    if (!fa.OpenForWrite(path)) return false;
    XString charset("utf-8");
    XString text("<root>\n");
    bool ok = fa.AppendText(text, charset);
    for (int i = 1; ok && i <= count; ++i) {
        std::string rec = "  <rec id=\"" + std::to_string(i) + "\"><name>item " +
                          std::to_string(i) + "</name><price>" + std::to_string(i % 97) +
                          ".50</price></rec>\n";
        text.setFromUtf8(rec.c_str());
        ok = fa.AppendText(text, charset);
    }
    text.setFromUtf8("</root>\n");
    ok = ok && fa.AppendText(text, charset);
    fa.FileClose();
    return ok;
}

int main(int argc, char** argv) {
    ClsFileAccess fa;
    XString path;
    if (argc > 1) {
        path.setFromUtf8(argv[1]);
    } else {
        // An empty directory means the system's temporary directory.
        XString dir, prefix("records-");
        if (!fa.GetTempFilename(dir, prefix, path)) return fail(fa, "GetTempFilename");
        if (!writeSample(fa, path, 20000)) return fail(fa, "writing the sample");
        std::printf("wrote %lld bytes to %s\n", fa.FileSize64(path), path.getUtf8());
    }

    if (!fa.OpenForRead(path)) return fail(fa, "OpenForRead");
    XString begin("<rec>"), end("</rec>"), charset("utf-8");
    ClsStringBuilder record;
    long long count = 0;
    int rc;
    // The first call starts at the file's beginning; each later one resumes after the last record.
    while ((rc = fa.ReadNextFragment(count == 0, begin, end, charset, record)) == 1) {
        if (++count <= 3) std::printf("record %lld: %s\n", count, record.m_str.getUtf8());
        record.m_str.clear();  // the reader appends, so start each record afresh
    }
    fa.FileClose();
    if (rc < 0) return fail(fa, "ReadNextFragment");
    std::printf("%lld records\n", count);

    if (argc <= 1) fa.FileDelete(path);
    return 0;
}
