// The scenes the virtual tracker plays for vyx: built-in ones by name, or a
// scene file.
#pragma once

#include "sim/Scene.h"

#include <string>

namespace vyx::cli {

// The built-in scene names, comma-separated, for help texts.
extern const char* const kSceneNames;

// A built-in scene by name, or else the scene file of that path:
//   workbench  a still reference, a pointer pivoting in a dimple, a turning
//              handpiece, 0.05 px of noise on the centres (the default)
//   tipcal     a pointer turning in a calibrator's hole
//   selfcal    a tool ("wand") whose file is 0.4 mm off
//   maketool   a 4-marker tool that no file knows yet ("newtool";
//              "maketool5" has 5 markers)
//   reference  a turning reference carrying a pointer and a drill
// Throws CommandError for an unknown name or a bad file.
vyx::sim::Scene loadScene(const std::string& nameOrPath);

// Writes the tool file of each listed body of the scene into `directory`
// (made if needed) unless a file of that name is there already, so that
// calibrations saved there are kept. Returns the names written.
std::string writeMissingToolFiles(const vyx::sim::Scene& scene, const std::string& directory);

}  // namespace vyx::cli
