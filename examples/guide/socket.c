/* A request and its answer over TCP: a server thread sends every text back in capitals. */
#include <ctype.h>
#include <qiv/qiv.h>
#include <stdio.h>
#include <string.h>

enum { kLongestText = 1000, kWaitMs = 10000 };

/* A message is 4 bytes of length in network order, then the text. */
static int SendText(int socket, const char* text, unsigned int length) {
  const unsigned int head = QIV_Htonl(length);
  if (QIV_Sendn(socket, &head, sizeof head, kWaitMs) != (int)sizeof head) return -1;
  return QIV_Sendn(socket, text, length, kWaitMs) == (int)length ? 0 : -1;
}

static int ReceiveText(int socket, char* text) {
  unsigned int length;
  if (QIV_Recvn(socket, &length, sizeof length, kWaitMs) != (int)sizeof length) return -1;
  length = QIV_Ntohl(length);
  if (length == 0 || length > kLongestText) return -1; /* do not trust the peer */
  if (QIV_Recvn(socket, text, length, kWaitMs) != (int)length) return -1;
  text[length] = '\0';
  return (int)length;
}

static void* Serve(void* listener) {
  char text[kLongestText + 1];
  int length;
  const int connection = QIV_Accept(*(const int*)listener, NULL, kWaitMs);
  if (connection == -1) return NULL;
  while ((length = ReceiveText(connection, text)) >= 0) {
    int i;
    for (i = 0; i < length; ++i) text[i] = (char)toupper((unsigned char)text[i]);
    if (SendText(connection, text, (unsigned int)length) != 0) break;
  }
  QIV_CloseSocket(connection, 1);
  return NULL;
}

static int Ask(const QIV_ADDR_T* server) {
  char answer[kLongestText + 1] = "";
  const int connection = QIV_CreateSocket(AF_INET, SOCK_STREAM, 0);
  int isRight = connection != -1 && QIV_ConnectWithTimeOut(connection, server, kWaitMs) == 0;
  isRight = isRight && SendText(connection, "how are you", 11) == 0;
  isRight = isRight && ReceiveText(connection, answer) == 11;
  printf("the server answers: %s\n", answer);
  QIV_CloseSocket(connection, 1);
  return isRight && strcmp(answer, "HOW ARE YOU") == 0;
}

int main(void) {
  QIV_ADDR_T address;
  unsigned int server;
  int listener, isRight;
  if (QIV_Init() != QIV_OK) return 1;
  listener = QIV_CreateSocket(AF_INET, SOCK_STREAM, 0);
  QIV_SetReuseAddr(listener, 1);
  QIV_MakeAddrByString(AF_INET, "127.0.0.1", 0, &address); /* port 0: the system chooses one */
  if (QIV_Bind(listener, &address) != 0 || QIV_Listen(listener, 5) != 0) return 1;
  if (QIV_GetAddrBySockFd(listener, &address, NULL) != 0) return 1;
  server = QIV_Thread_Create(Serve, &listener, 0, 0, 0, 0);
  if (server == QIV_INVALID_ID) return 1;
  isRight = Ask(&address);
  QIV_Thread_Wait(server);
  QIV_CloseSocket(listener, 0);
  QIV_Fini();
  return isRight ? 0 : 1;
}
