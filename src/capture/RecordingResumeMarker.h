#pragma once

namespace ostrel {

/// An empty file, `~/.ostrel/resume-recording`, by which one run of the program tells the next that it was recording.
/// Any thread; blocks on the disk. A marker that can't be written or removed is not an error: the worst that comes of
/// it is that a recording is not resumed, or resumed once more.
namespace RecordingResumeMarker {

void write();

/// @return whether the marker was there; it is removed
bool consume();

} // namespace RecordingResumeMarker

} // namespace ostrel
