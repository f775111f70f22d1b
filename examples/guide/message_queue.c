// Print shop: jobs wait in a queue, a printer takes the urgent ones first and reports what it did.
#include <qiv/message_queue.h>
#include <qiv/thread.h>
#include <stdio.h>
#include <string.h>

enum { kJob = 1, kDone = 2, kClose = 3 };
enum { kNormal = 0, kUrgent = 10, kAfterAll = -1 };

struct Shop {
  QIV_MQ_INTER* jobs;
  QIV_MQ_INTER* reports;
};

static int Send(QIV_MQ_INTER* queue, unsigned int type, int priority, const char* text) {
  QIV_MSG_BLOCK_T message;
  message.iMsgType = type;
  message.iPriority = priority;
  message.iMsgLen = snprintf(message.chMsgData, sizeof message.chMsgData, "%s", text) + 1;
  return QIV_MsgQSendEx(queue, &message);
}

static int Receive(QIV_MQ_INTER* queue, QIV_MSG_BLOCK_T* message) {
  message->iMsgLen = QIV_MSGQ_MAX_DATA;  // the room, anew before each receive
  return QIV_MsgQReceiveEx(queue, message, QIV_INFINITE);
}

static void* RunPrinter(void* argument) {
  const struct Shop* const shop = argument;
  QIV_MSG_BLOCK_T job;
  while (Receive(shop->jobs, &job) == QIV_OK && job.iMsgType == kJob) {
    if (Send(shop->reports, kDone, kNormal, job.chMsgData) != QIV_OK) break;
  }
  Send(shop->reports, kClose, kNormal, "closed");
  return NULL;
}

static int PrintAll(struct Shop* shop) {
  static const char* const kExpected[] = {"boarding pass", "letter", "poster"};
  if (Send(shop->jobs, kJob, kNormal, "letter") != QIV_OK ||
      Send(shop->jobs, kJob, kNormal, "poster") != QIV_OK ||
      Send(shop->jobs, kJob, kUrgent, "boarding pass") != QIV_OK ||
      Send(shop->jobs, kClose, kAfterAll, "") != QIV_OK) {
    return 0;
  }
  const unsigned int printer = QIV_Thread_Create(RunPrinter, shop, 0, 0, 0, 0);
  if (printer == QIV_INVALID_ID) return 0;
  int printed = 0;
  int isRight = 1;
  QIV_MSG_BLOCK_T report;
  while (Receive(shop->reports, &report) == QIV_OK && report.iMsgType == kDone) {
    printf("printed: %s\n", report.chMsgData);
    isRight = isRight && printed < 3 && strcmp(report.chMsgData, kExpected[printed]) == 0;
    ++printed;
  }
  QIV_Thread_Wait(printer);  // before the queues end
  return isRight && printed == 3;
}

int main(void) {
  struct Shop shop;
  if (QIV_MsgQCreateEx(&shop.jobs) != QIV_OK || QIV_MsgQCreateEx(&shop.reports) != QIV_OK) return 1;
  const int isRight = PrintAll(&shop);
  QIV_MsgQDestroyEx(shop.reports);
  QIV_MsgQDestroyEx(shop.jobs);
  return isRight ? 0 : 1;
}
