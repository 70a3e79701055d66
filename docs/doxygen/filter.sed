# What the reader of a header sees without being told, told to doxygen. The
# numbers of lines stay.

# Unused words are reserved.
s@^( +)((void \*slot|char reserved|uint(8|16|32|64)_t reserved)[0-9]*(\[[0-9]+\])?;)@\1/** Reserved. */ \2@

# A slot for an operation is the function of its name.
s@^( +)((MORVAStatus|uint32_t|uint64_t|void) \(\*([A-Z][A-Za-z0-9]+)\)\((const )?MORVAInst \*)@\1/** See MORVA\4(). */ \2@
s@^( +)((MORVAStatus |MORVAInst \*)\(\*([A-Z][A-Za-z]+)\)\(MORVAExt \*)@\1/** See MORVA\4(). */ \2@

# Three words of one line, documented as one.
s@(uint32_t) (major|hostMajor), (minor|hostMinor), (patch|hostPatch);@\1 \2; /** The second part. */ \1 \3; /** The third part. */ \1 \4;@

# Specialisations for the standard library are no part of this reference.
/^template <.*>$/ {
  N
  s@^template [^\n]*\n(struct|inline constexpr bool) std::[^;]*;$@\n@
}
