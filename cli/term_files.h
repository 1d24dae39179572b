// Glossary and instruction files of the front end, read strictly: a line the
// reader can't take is an error that names its file and line, never a term
// quietly dropped.
//
// A glossary file is UTF-8 text (a leading byte-order mark is allowed), one
// term a line: SOURCE, a tab, TARGET, and optionally a tab and a NOTE. Blank
// lines and lines whose first character is '#' are skipped; spaces around a
// field are kept, as a term may need them. An instruction file is UTF-8
// plain text, taken whole, without its trailing blank lines.
#pragma once

#include <string>
#include <vector>

#include "run/local_stores.h"

namespace qb::cli {

// False with a one-line `error` ("NAME:LINE: ...") when the text isn't a
// glossary with at least one term.
bool ParseGlossaryText(const std::string& name, const std::string& utf8,
                       std::vector<GlossaryEntry>& terms, std::string& error);

// False with a one-line `error` when the text isn't UTF-8 or says nothing.
bool ParseInstructionText(const std::string& name, const std::string& utf8,
                          std::u16string& instruction, std::string& error);

}  // namespace qb::cli
