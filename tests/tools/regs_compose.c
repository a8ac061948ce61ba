/* Composes the block's registers from a parameter file with nothing but the header that
 * 'fbc regs export --format c' writes, and prints them as 'fbc regs' does. Builds as C and C++.
 * usage: regs_compose PARAMS.ini */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "fbc_regs.h"

#define MAX_PARAMS 64
#define MAX_ELEMENTS 64

struct param {
  char section[64];
  char key[64];
  long values[MAX_ELEMENTS];
};

static struct param params[MAX_PARAMS];
static int param_count;

static const long* lookup(const char* section, const char* key) {
  int i;
  for (i = 0; i < param_count; ++i) {
    if (strcmp(params[i].section, section) == 0 && strcmp(params[i].key, key) == 0) {
      return params[i].values;
    }
  }
  fprintf(stderr, "regs_compose: %s/%s is not in the parameter file\n", section, key);
  exit(2);
}

static void read_params(FILE* in) {
  char line[1024], section[64] = "";
  while (fgets(line, sizeof line, in)) {
    char* eq = strchr(line, '=');
    if (line[0] == '[') {
      sscanf(line, "[%63[^]]", section);
    } else if (eq && param_count < MAX_PARAMS) {
      struct param* p = &params[param_count++];
      char* text = eq + 1;
      int n;
      *eq = '\0';
      strcpy(p->section, section);
      sscanf(line, "%63s", p->key);
      for (n = 0; n < MAX_ELEMENTS && *text; ++n) {
        char* end;
        p->values[n] = strtol(text, &end, 0);
        text = *end == ',' ? end + 1 : end + strlen(end);
      }
    }
  }
}

int main(int argc, char** argv) {
  static uint32_t reg[0x10000];
  FILE* in;
  if (argc != 2 || !(in = fopen(argv[1], "r"))) return 2;
  read_params(in);
  fclose(in);

#define COMPOSE(name, section, key, element, addr, shift, width, src, reset) \
  reg[addr] |= ((uint32_t)((int32_t)lookup(section, key)[element] >> src) << shift) & name##_MASK;
  FBC_FIELDS(COMPOSE)
#undef COMPOSE

#define PRINT(addr, reset) printf("0x%04x 0x%04x\n", (unsigned)(addr), (unsigned)reg[addr]);
  FBC_REGISTERS(PRINT)
#undef PRINT
  return 0;
}
