# The libraries the engine depends on, found the same way when it is built and when a host finds
# the installed package (tarnwick-markdown-config.cmake includes this file). Imported targets
# carry a TARNWICK_ prefix, so a host's own pkg-config lookups keep their names.

# The tree-sitter runtime: a declared dependency, so that a process holds one runtime, the
# system's, shared with the host. Debian's tree-sitter.pc states a wrong version (0.6.3 for
# 0.20.7), so the runtime is checked by the grammar ABI its header says it reads.
if(NOT TARGET PkgConfig::TARNWICK_TREE_SITTER)
  pkg_check_modules(TARNWICK_TREE_SITTER REQUIRED IMPORTED_TARGET tree-sitter)
  find_file(TARNWICK_TREE_SITTER_API tree_sitter/api.h
            HINTS ${TARNWICK_TREE_SITTER_INCLUDE_DIRS} NO_CACHE)
  file(STRINGS "${TARNWICK_TREE_SITTER_API}" abi REGEX "^#define TREE_SITTER_LANGUAGE_VERSION ")
  string(REGEX MATCH "[0-9]+$" abi "${abi}")
  if(NOT abi OR abi LESS 14)
    message(FATAL_ERROR "tarnwick-markdown needs a tree-sitter runtime that reads grammars of "
                        "ABI 14 (tree-sitter 0.20.7 or later); ${TARNWICK_TREE_SITTER_API} reads ${abi}.")
  endif()
endif()
if(NOT TARGET PkgConfig::TARNWICK_PCRE2)
  pkg_check_modules(TARNWICK_PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
endif()
if(NOT TARGET PkgConfig::TARNWICK_YAML)
  pkg_check_modules(TARNWICK_YAML REQUIRED IMPORTED_TARGET yaml-0.1)
endif()
