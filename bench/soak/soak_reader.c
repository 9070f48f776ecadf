/* A reader library whose replies tell which request they answer. It is built under several names,
 * each with functions of its own: "soak.NAME" gives its command back, "soak.NAME.slow" takes a few
 * milliseconds for it, "soak.NAME.long" fills the reply. */
#include <quorvel_reader.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#define FUNCTION "soak." NAME
#define LONG_REPLY 1000 /* bytes */

static const char function_list[] = FUNCTION "\n" FUNCTION ".slow\n" FUNCTION ".long\n";

int32_t getversion(char* verinfo, char* answer, char* verextra, char* error) {
  (void)verinfo;
  (void)verextra;
  (void)error;
  for (size_t i = 0; i < sizeof function_list - 1; i++)
    snprintf(answer + 2 * i, QUORVEL_ANSWER_SIZE - 2 * i, "%02x", (unsigned char)function_list[i]);
  return 1;
}

int32_t init(char* parameter) {
  (void)parameter;
  return 1;
}

void uninit(void) {}

int32_t scommand(const char* name, const char* command, char* reply) {
  if (strcmp(name, FUNCTION ".slow") == 0) nanosleep(&(struct timespec){.tv_nsec = 3000000}, NULL);
  int length =
      snprintf(reply, QUORVEL_REPLY_SIZE,
               "{\"result\":\"true\",\"fid\":\"%s\",\"command\":%s,\"pad\":\"读卡", name, command);
  if (strcmp(name, FUNCTION ".long") == 0)
    while (length < LONG_REPLY - 2) reply[length++] = 'x';
  snprintf(reply + length, QUORVEL_REPLY_SIZE - (size_t)length, "\"}");
  return 1;
}
