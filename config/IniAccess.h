#pragma once

// One-value-per-call access to INI text files. Every call opens and closes the file; the work is
// done in fixed stack buffers. A null or empty section addresses the keys before the first header.

#include <string>
#include <vector>

#define INI_BUFFERSIZE 4096

typedef int (*INI_CALLBACK)(const char* section, const char* key, const char* value,
                            void* userData);

int ini_gets(const char* section, const char* key, const char* defValue, char* buffer,
             int bufferSize, const char* filename);
long ini_getl(const char* section, const char* key, long defValue, const char* filename);
float ini_getf(const char* section, const char* key, float defValue, const char* filename);
int ini_getbool(const char* section, const char* key, int defValue, const char* filename);
int ini_getsection(int index, char* buffer, int bufferSize, const char* filename);
int ini_getkey(const char* section, int index, char* buffer, int bufferSize, const char* filename);
int ini_browse(INI_CALLBACK callback, void* userData, const char* filename);

// A null key deletes the whole section, a null value deletes the key.
int ini_puts(const char* section, const char* key, const char* value, const char* filename);
int ini_putl(const char* section, const char* key, long value, const char* filename);
int ini_putf(const char* section, const char* key, float value, const char* filename);

// An INI text held in memory instead of a file: the overloads below read it, and ini_puts edits it,
// with exactly the rules of the file functions (the text stands for the whole file's bytes).
struct IniText {
  std::string* text;
};
int ini_gets(const char* section, const char* key, const char* defValue, char* buffer,
             int bufferSize, IniText text);
long ini_getl(const char* section, const char* key, long defValue, IniText text);
int ini_getsection(int index, char* buffer, int bufferSize, IniText text);
int ini_getkey(const char* section, int index, char* buffer, int bufferSize, IniText text);
int ini_puts(const char* section, const char* key, const char* value, IniText text);

// How the readers classify each line of a text, for tools that tell a user which lines the
// readers would pass over: `name` is the section name or the key (cut as the readers cut them),
// `text` the line as the readers keep it, without its terminator.
enum class IniLineKind { Blank, Comment, Section, Key, Other };
struct IniLineInfo {
  int number;  // 1-based
  IniLineKind kind;
  std::string name;
  std::string text;
};
std::vector<IniLineInfo> ini_lines(const std::string& text);
