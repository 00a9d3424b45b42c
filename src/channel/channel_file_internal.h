// The tokenizer that channel setup files and driver configuration files share.
#pragma once

#include <cstdio>

constexpr int CHANNEL_WORD_MAX = 1024;  // bytes of a word, terminator included

// The next blank-separated word into `word` (CHANNEL_WORD_MAX bytes). 1, or 0
// at the end of the stream. The blank behind the word stays unread, so that a
// line's end is still there for channelLineSkip.
int channelWordRead(FILE *f, char *word);
// Passes over the rest of the current line, its line feed included.
void channelLineSkip(FILE *f);
// The rest of the current line without its blanks at either end, into `text`
// (`size` bytes); the line feed is consumed.
void channelLineRest(FILE *f, char *text, int size);
// The id of the next token: words that are no token are passed over, and "#"
// passes over the rest of its line. 0 at the end of the stream.
int channelTokenNext(FILE *f, char *word);
// The boolean value: the next word, 1 for "ON", 0 for anything else.
int channelBoolRead(FILE *f);
// A word "ON" or "OFF" is next: it is read into `value` (1 or 0). Otherwise
// the stream is left where it was and the result is 0.
int channelBoolPeek(FILE *f, int *value);

struct ChannelDriver;
// driverFileRead, with its messages only when `report` is set.
int driverConfigRead(const char *directory, const char *name, ChannelDriver *driver, int report);
