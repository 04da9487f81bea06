// A filter of 50 rules of every kind, for tests and benchmarks.
#pragma once

namespace tolven::test {

inline constexpr const char* kFiftyRules = R"([Version]
major = 1
minor = 0
[Common]
black_char = "\x01\x02|"
black_prefix = "~$", ".sync-", "._", "#tmp#"
black_suffix = ".partial", ".crdownload", "~bak"
black_name = ".DS_Store", "Thumbs.db", "desktop.ini", "$RECYCLE.BIN", "lost+found", "@eaDir"
black_dir_prefix = "/private", "/build/output", "/photos/raw/2019"
max_length = 255
max_path = 4000
[File]
black_char = ":"
black_prefix = "core.", "nohup"
black_suffix = ".lock", ".swp", "_old"
black_glob = "*.tmp*", "cache-*-*.bin", "report*draft*"
black_ext = "tmp", "temp", "bak", "obj", "pch", "ilk", "iso", "vmdk"
black_name = "hiberfil.sys", "pagefile.sys", "swapfile"
max_size = 1073741824
[Directory]
black_char = "?"
black_name = "node_modules", ".git", ".svn", "__pycache__"
black_prefix = ".Trash", "Temporary Items"
black_suffix = ".bundle"
)";

// None of them is refused.
inline constexpr const char* kPassingPaths[] = {
    "/Documents/2023/Letters/To the bank about the new account.docx",
    "/Music/Various Artists/Winter 1987/03 - Northern Wind.flac",
    "/src/project/include/project/detail/iterator_facade.hpp",
    "/notes.txt",
    "/Pictures/Holidays/\xC3\x85lesund/IMG_20230714_183355.jpeg",
};

}  // namespace tolven::test
