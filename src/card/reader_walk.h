// The reader enumeration both card modes share (internal).
#pragma once

// Runs procedure(reader, recordFile, action) on every reader PC/SC lists, in
// list order, then ends the walk's line; returns the last procedure's result
// (0 with no reader, or no PC/SC service at all).
int enumerateReaders(int (*procedure)(const char*, const char*, int), const char* recordFile, int action);
