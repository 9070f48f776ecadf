/* A complete reader library, as small as it gets: one function, "example.serial", that answers with
 * the serial number of an imaginary reader.
 *
 * Build it in this folder with one command (a UTF-8 source, GBK texts at run time):
 *
 *   gcc -std=c99 -Wall -Wextra -shared -fPIC -fvisibility=hidden -fexec-charset=GBK \
 *       -I../include -o libminimal_reader.so minimal_reader.c
 *
 * In the source tree of the service the header lies one folder up: use -I.. there.
 */
#include <quorvel_reader.h>
#include <stdio.h>
#include <string.h>

static const char function_list[] = "example.serial\n";

int32_t getversion(char* verinfo, char* answer, char* verextra, char* error) {
  (void)verinfo;
  (void)verextra;
  (void)error;
  for (size_t i = 0; i < sizeof function_list - 1; i++)
    snprintf(answer + 2 * i, QUORVEL_ANSWER_SIZE - 2 * i, "%02x", (unsigned char)function_list[i]);
  return 1;
}

int32_t init(char* parameter) {
  (void)parameter; /* Open the reader here. */
  return 1;
}

/* Close the reader here. */
void uninit(void) {}

int32_t scommand(const char* name, const char* command, char* reply) {
  (void)command; /* A library with arguments parses this JSON object. */
  if (strcmp(name, "example.serial") != 0) {
    snprintf(reply, QUORVEL_REPLY_SIZE, "{\"result\":\"false\",\"errmsg\":\"不支持该功能.\"}");
    return 0;
  }
  snprintf(reply, QUORVEL_REPLY_SIZE,
           "{\"result\":\"true\",\"fid\":\"example.serial\",\"maker\":\"示例读卡器\","
           "\"serial\":\"0001\"}");
  return 1;
}
