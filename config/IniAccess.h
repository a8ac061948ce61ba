#pragma once

// One-value-per-call access to INI text files. Every call opens and closes the file; the work is
// done in fixed stack buffers. A null or empty section addresses the keys before the first header.

#define INI_BUFFERSIZE 4096

typedef int (*INI_CALLBACK)(const char* section, const char* key, const char* value, void* userData);

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
