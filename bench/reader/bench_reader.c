/* A reader library whose own work can be neglected: its replies are constants. */
#include <quorvel_reader.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

enum { WORK_SECONDS = 3 }; /* of "bench.work", during which it sleeps as a card's reader does */

#define CARD                                                                                  \
  "\"data\":{\"aac002\":\"110101199003070011\",\"aac003\":\"张三\",\"aac004\":\"1\","       \
  "\"aac005\":\"01\",\"aac006\":\"19900307\",\"aae008\":\"110000\",\"aaz500\":\"A00000001\"," \
  "\"aab301\":\"北京市东城区景山前街4号\",\"aae053\":\"示例读卡器\"}}"

static const struct {
  const char* name;
  const char* reply;
} function_list[] = {
    {"bench.card", "{\"result\":\"true\",\"fid\":\"bench.card\"," CARD},
    {"bench.without", "{\"result\":\"true\"," CARD}, /* leaves its "fid" to the service */
    {"bench.work", "{\"result\":\"true\",\"fid\":\"bench.work\"}"},
};
enum { FUNCTIONS = sizeof function_list / sizeof function_list[0] };

int32_t getversion(char* verinfo, char* answer, char* verextra, char* error) {
  (void)verinfo;
  (void)verextra;
  (void)error;
  for (int i = 0; i < FUNCTIONS; i++) {
    for (const char* c = function_list[i].name; *c != '\0'; c++)
      answer += sprintf(answer, "%02x", (unsigned char)*c);
    answer += sprintf(answer, "0a");
  }
  return 1;
}

int32_t init(char* parameter) {
  (void)parameter;
  return 1;
}

void uninit(void) {}

int32_t scommand(const char* name, const char* command, char* reply) {
  const struct timespec work = {WORK_SECONDS, 0};
  (void)command;
  for (int i = 0; i < FUNCTIONS; i++) {
    if (strcmp(name, function_list[i].name) != 0) continue;
    if (strcmp(name, "bench.work") == 0) nanosleep(&work, NULL);
    strcpy(reply, function_list[i].reply);
    return 1;
  }
  return 0;
}
