// The tool's information property list, embedded in the executable as the
// platform embeds it in a command-line tool, so that the main bundle can answer
// version questions without any file beside the binary. Linked into the tool
// only; QHV_INFO_PLIST names the list as the build wrote it, in the binary format.
asm(".pushsection qhv_info_plist, \"a\", @progbits\n"
    ".incbin \"" QHV_INFO_PLIST "\"\n"
    ".popsection\n");
