// Reads the records of a large XML file, without loading the file: all in one call with
// ScanFragments, then the first few again one call at a time with ReadNextFragment.
//
//   example_scan_records [FILE.xml]
//
// Without an argument it first writes a sample file of 20,000 <rec> records into the
// temporary directory. A record is the stretch from a begin marker through the next end
// marker; the begin marker <rec> also matches the tag with attributes. Memory use stays at
// about half a MiB (the scan's window) plus the longest record, whatever the file's size.
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

    // Every record in one call: the consumer gets each one's text (valid during the call
    // only) and returns true to go on. This is the fast way through many records.
    long long total = 0;
    const int scanned = fa.ScanFragments(true, 0, begin, end, charset, [&](const XString& rec) {
        total += rec.getSizeUtf8();
        return true;
    });
    if (scanned < 0) return fail(fa, "ScanFragments");
    std::printf("%d records, %lld bytes of record text\n", scanned, total);

    // One record per call: each call resumes after the record the last one returned, so
    // the calls mix with the object's other reads and writes.
    ClsStringBuilder record;
    for (int i = 1; i <= 3; ++i) {
        const int rc = fa.ReadNextFragment(i == 1, begin, end, charset, record);
        if (rc < 0) return fail(fa, "ReadNextFragment");
        if (rc == 0) break;
        std::printf("record %d: %s\n", i, record.m_str.getUtf8());
        record.m_str.clear();  // the reader appends, so start each record afresh
    }
    fa.FileClose();

    if (argc <= 1) fa.FileDelete(path);
    return 0;
}
