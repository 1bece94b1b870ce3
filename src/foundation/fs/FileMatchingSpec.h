// Which entries a tree operation touches. The default spec matches everything.
#pragma once

class FileMatchingSpec {
public:
    FileMatchingSpec() = default;
    ~FileMatchingSpec() = default;
    bool matchesEverything() const { return true; }
};
