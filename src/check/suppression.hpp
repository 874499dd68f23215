// Problems silenced in the document itself, by HTML comments as GitHub's parser finds them
// (never in code):
//   <!-- tarnwick-md-ignore-next-line [CODE...] -->   the line after the comment
//   <!-- tarnwick-md-ignore-start [CODE...] -->       the lines up to the next
//   <!-- tarnwick-md-ignore-end -->                   (or to the end of the file)
//   <!-- tarnwick-md-ignore-file [CODE...] -->        the whole file
// Without codes a suppression silences every problem; codes are separated by spaces or commas.
#pragma once

#include <string>
#include <vector>

#include "check/check.hpp"
#include "gfm/document.hpp"

namespace tarnwick::check {

// The problems of a document (in the document's order) that its comments do not silence. With
// `report_unused`, an unused-suppression problem is added for each suppression that silenced
// none; a suppression that cannot silence anything (a code or a kind misspelt, an end with no
// start) is reported whatever `report_unused` says.
std::vector<Problem> unsuppressed(std::vector<Problem> problems, const std::string& path,
                                  const std::vector<gfm::Comment>& comments, bool report_unused);

}  // namespace tarnwick::check
