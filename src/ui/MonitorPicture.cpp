#include "ui/MonitorPicture.hpp"

#include <GL/gl.h>

#include <cstdint>

#include "platform/FrameDecoder.hpp"

namespace tavorin {

MonitorPicture::MonitorPicture(std::function<void()> arrived) : arrived_(std::move(arrived)) {}

MonitorPicture::~MonitorPicture() {
  decoder_.reset();
  if (texture_) glDeleteTextures(1, &texture_);
}

void MonitorPicture::release() {
  decoder_.reset();
  asked_ = {};
  holding_ = false;
}

std::optional<std::string> MonitorPicture::failure() const {
  return decoder_ ? decoder_->failure() : std::nullopt;
}

std::optional<MonitorFeed::Image> MonitorPicture::show(const std::filesystem::path& film, double seconds, int width,
                                                       int height) {
  if (!decoder_ || decoder_->film() != film) {
    release();
    decoder_ = std::make_unique<FrameDecoder>(film, arrived_);
  }
  // Asking costs the decoder a wake; a still playhead at a still size asks once.
  if (const Asked now{seconds, width, height}; now != asked_) {
    asked_ = now;
    decoder_->request(seconds, width, height);
  }
  if (auto frame = decoder_->take()) {
    if (!texture_) {
      glGenTextures(1, &texture_);
      glBindTexture(GL_TEXTURE_2D, texture_);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    glBindTexture(GL_TEXTURE_2D, texture_);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    if (frame->width != textureWidth_ || frame->height != textureHeight_) {
      glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, frame->width, frame->height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                   frame->rgba.data());
      textureWidth_ = frame->width;
      textureHeight_ = frame->height;
    } else {
      glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, frame->width, frame->height, GL_RGBA, GL_UNSIGNED_BYTE,
                      frame->rgba.data());
    }
    holding_ = true;
    filmWidth_ = frame->filmWidth;
    filmHeight_ = frame->filmHeight;
  }
  if (!holding_) return std::nullopt;
  return Image{reinterpret_cast<void*>(static_cast<std::uintptr_t>(texture_)), filmWidth_, filmHeight_};
}

}  // namespace tavorin
