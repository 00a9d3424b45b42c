// PNG files of frames written on threads of their own while the next frames
// are drawn: the encoding costs more than the drawing of a simple scene.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FrameWriter {
public:
    // `threads` writers for frames of width x height; at most two frames per
    // writer wait at a time.
    FrameWriter(int threads, int width, int height);
    ~FrameWriter();  // finishes what was handed in
    FrameWriter(const FrameWriter &) = delete;
    FrameWriter &operator=(const FrameWriter &) = delete;

    // Hands over the rows of a frame (bottom first, RGB) for `file`; waits
    // while the queue is full. False once a file could not be written.
    bool write(std::string file, std::vector<unsigned char> pixels);
    // Waits until every frame handed in is written; false when one failed.
    bool finish();

private:
    struct Job {
        std::string file;                  // path of the PNG
        std::vector<unsigned char> pixels; // RGB rows, bottom first
    };
    void run();

    int width_, height_;         // pixels of every frame
    size_t limit_;               // frames that may wait
    std::mutex mutex_;
    std::condition_variable changed_;  // a job came, went or ended
    std::deque<Job> jobs_;
    bool failed_ = false;        // a file could not be written
    bool closing_ = false;       // no more jobs come
    std::vector<std::thread> threads_;
};
