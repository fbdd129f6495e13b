// Paths written to a run a piece at a time: a line counts only when it is whole.
#include "file_source.hpp"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

namespace {

using pc::runner::FileSource;
using Next = FileSource::Next;

struct Pipe {
    int read_end = -1, write_end = -1;
    Pipe() {
        int fds[2];
        if (pipe(fds) == 0) read_end = fds[0], write_end = fds[1];
    }
    ~Pipe() { close_writing(); }
    void write(const std::string &text) { ASSERT_EQ(::write(write_end, text.data(), text.size()), ssize_t(text.size())); }
    void close_writing() {
        if (write_end >= 0) ::close(write_end);
        write_end = -1;
    }
};

TEST(FileSource, APathCountsOnlyOnceItsLineIsWhole) {
    Pipe pipe;
    FileSource source = FileSource::of_stream({"named.yaml"}, pipe.read_end); // the source closes the read end
    std::string path;
    ASSERT_EQ(source.next(path, false), Next::path);
    EXPECT_EQ(path, "named.yaml") << "the files named on the command line come first";
    EXPECT_EQ(source.next(path, false), Next::later) << "nothing written yet";
    pipe.write("dir/a.ya");
    EXPECT_EQ(source.next(path, false), Next::later) << "half a line is no path";
    EXPECT_GE(source.descriptor(), 0);
    pipe.write("ml\r\n\n  \nb.yaml\nc");
    ASSERT_EQ(source.next(path, false), Next::path);
    EXPECT_EQ(path, "dir/a.yaml") << "a carriage return before the newline is not part of the path";
    ASSERT_EQ(source.next(path, false), Next::path);
    EXPECT_EQ(path, "b.yaml") << "blank lines are passed over";
    EXPECT_EQ(source.next(path, false), Next::later);
    pipe.close_writing();
    ASSERT_EQ(source.next(path, true), Next::path);
    EXPECT_EQ(path, "c") << "the last line counts without its newline";
    EXPECT_EQ(source.next(path, true), Next::end);
    EXPECT_TRUE(source.ended());
    EXPECT_EQ(source.descriptor(), -1) << "nothing left to wait for";
}

TEST(FileSource, AListEndsAfterItsLastPath) {
    FileSource source = FileSource::of_list({"a.yaml", "b.yaml"});
    std::string path;
    EXPECT_EQ(source.descriptor(), -1);
    ASSERT_EQ(source.next(path, false), Next::path);
    ASSERT_EQ(source.next(path, false), Next::path);
    EXPECT_EQ(path, "b.yaml");
    EXPECT_FALSE(source.ended());
    EXPECT_EQ(source.next(path, false), Next::end);
    EXPECT_TRUE(source.ended());
}

} // namespace
