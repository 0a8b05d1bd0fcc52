// ModeCapture: a start prepares the engine only once it is sure to go ahead, so a start dropped
// while one runs leaves the running one's engine as it was.
#include "capture/mode_capture.hpp"

namespace vormelt {

ModeCapture::ModeCapture(FrameSink& engine, Prepare prepare)
    : counting_(engine), prepare_(std::move(prepare)) {}

bool ModeCapture::Start(const CaptureTarget& target) {
  if (Capturing()) return false;
  if (prepare_) prepare_(target);
  if (!session_.Start(target, counting_)) return false;
  readingFile_.store(target.type == CaptureTarget::Type::File);
  return true;
}

void ModeCapture::Restart(const CaptureTarget& target) {
  readingFile_.store(target.type == CaptureTarget::Type::File);
  session_.Restart(target, counting_);
}

// Straight to the session, whatever the flags say: between the two halves of a Restart nothing
// listens, and a Stop pressed then must still cancel the start that is waiting.
void ModeCapture::Stop() { session_.Stop(); }

bool ModeCapture::Listening() const {
  return Capturing() && Status().status == CaptureStatus::Listening;
}

bool ModeCapture::FileCutShort() const {
  return ReadingFile() && Status().status == CaptureStatus::Stopped && BytesRead() < BytesTotal();
}

}  // namespace vormelt
