// Sessions of a server: at most four at once, each in a block of a pool; a fifth client is refused.
#include <qiv/memory_pool.h>
#include <stdio.h>

// Blocks are aligned to 4 bytes: no pointers, doubles or 64-bit numbers in here.
struct Session {
  unsigned int client;
  unsigned int requests;
  char name[24];
};

static const unsigned int kInitialSessions = 2;
static const unsigned int kMostSessions = 4;
static const int kCheckBoundary = 1;
static const long long kNeverGiveBack = -1;
static const int kOneThread = 1;

static struct Session* Admit(QIV_HANDLE pool, unsigned int client) {
  struct Session* const session = QIV_MemoryPool_Alloc(pool);
  if (session == NULL) {
    printf("client %u: try again later\n", client);
    return NULL;
  }
  session->client = client;  // the block has what its last user left in it
  session->requests = 0;
  snprintf(session->name, sizeof session->name, "client %u", client);
  printf("%s: admitted\n", session->name);
  return session;
}

int main(void) {
  QIV_HANDLE pool = QIV_MemoryPool_Create(sizeof(struct Session), kInitialSessions, kMostSessions,
                                          kCheckBoundary, kNeverGiveBack, kOneThread);
  if (pool == NULL) return 1;

  struct Session* sessions[5];
  for (unsigned int client = 0; client < 5; ++client) sessions[client] = Admit(pool, client);
  int isRight = sessions[3] != NULL && sessions[4] == NULL;

  QIV_MemoryPool_Free(pool, sessions[1]);  // one leaves, so there is room again
  sessions[1] = NULL;
  sessions[4] = Admit(pool, 4);
  isRight = isRight && sessions[4] != NULL;

  // A null pointer may be freed. A write beyond a session would abort the program here.
  for (int i = 0; i < 5; ++i) QIV_MemoryPool_Free(pool, sessions[i]);
  const unsigned int kept = QIV_MemoryPool_Size(pool) / (unsigned int)sizeof(struct Session);
  printf("blocks kept: %u, lent: %u bytes\n", kept,
         QIV_MemoryPool_Size(pool) - QIV_MemoryPool_IdleSize(pool));
  isRight = isRight && kept == 4 && QIV_MemoryPool_IdleSize(pool) == QIV_MemoryPool_Size(pool);

  QIV_MemoryPool_Destroy(pool);
  return isRight ? 0 : 1;
}
