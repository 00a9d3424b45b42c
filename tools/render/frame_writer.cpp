#include "frame_writer.h"

#include <utility>

#include "graphic.h"

FrameWriter::FrameWriter(int threads, int width, int height)
    : width_(width), height_(height), limit_(static_cast<size_t>(threads < 1 ? 1 : threads) * 2) {
    for (int i = 0; i < (threads < 1 ? 1 : threads); ++i) threads_.emplace_back([this] { run(); });
}

FrameWriter::~FrameWriter() { finish(); }

bool FrameWriter::write(std::string file, std::vector<unsigned char> pixels) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return jobs_.size() < limit_ || failed_; });
    if (failed_) return false;
    jobs_.push_back(Job{std::move(file), std::move(pixels)});
    changed_.notify_all();
    return true;
}

bool FrameWriter::finish() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closing_ = true;
        changed_.notify_all();
    }
    for (std::thread &t : threads_)
        if (t.joinable()) t.join();
    threads_.clear();
    std::lock_guard<std::mutex> lock(mutex_);
    return !failed_;
}

void FrameWriter::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return !jobs_.empty() || closing_; });
        if (jobs_.empty()) return;  // closing, and nothing left
        Job job = std::move(jobs_.front());
        jobs_.pop_front();
        changed_.notify_all();
        lock.unlock();
        const bool ok = !failed_ && pngWriteRgb(job.file.c_str(), width_, height_, job.pixels.data());
        lock.lock();
        if (!ok) failed_ = true;
        changed_.notify_all();
    }
}
