// Which files a change touches, for checking a pull request's links only.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::check {

// The files under `root` that differ between the commit `ref` names and the work tree (staged,
// unstaged and untracked changes included; a renamed file by both its names), as paths from
// the root. None, with `reason` set, when the root is in no git work tree or `ref` names no
// commit.
std::optional<std::vector<std::string>> changed_since(const std::filesystem::path& root,
                                                      const std::string& ref, std::string& reason);

}  // namespace tarnwick::check
