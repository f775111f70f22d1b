/* A C99 program that links nothing but the library and calls something of every family. */
#include <qiv/qiv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

static int g_failures = 0;

#define CHECK(condition)                                                        \
  do {                                                                          \
    if (!(condition)) {                                                         \
      fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
      ++g_failures;                                                             \
    }                                                                           \
  } while (0)

static void UseLibrary(void) {
  CHECK(QIV_GetQIVVersion() == 0x0101000Cu);
  CHECK(strncmp(pVersion, "version: ", 9) == 0);
  CHECK(QIV_GetAf_Inner(QIV_AF_PREFERRED) == g_Af);
}

static void UseLastError(void) {
  CHECK(QIV_SetLastError(0xFFFFFFFFu) == QIV_OK);
  CHECK(QIV_GetLastError() == 0xFFFFFFFFu);
  CHECK(QIV_GetSystemErrorString(0) != NULL);
}

static void UseMutex(void) {
  pthread_mutex_t mutex;
  CHECK(QIV_MutexCreate(&mutex, -1) == QIV_OK);
  CHECK(QIV_MutexLock(&mutex) == QIV_OK);
  CHECK(QIV_MutexTryLock(&mutex) == QIV_OK);
  CHECK(QIV_MutexUnlock(&mutex) == QIV_OK);
  CHECK(QIV_MutexUnlock(&mutex) == QIV_OK);
  CHECK(QIV_MutexDestroy(&mutex) == QIV_OK);
}

static void UseSemaphore(void) {
  sem_t sem;
  CHECK(QIV_SemCreate(&sem, 1) == 0);
  CHECK(QIV_SemWait(&sem) == 0);
  CHECK(QIV_SemTimedWait(&sem, 0) == -1);
  CHECK(QIV_SemPost(&sem) == 0);
  CHECK(QIV_SemDestroy(&sem) == 0);
}

static void UseCondition(void) {
  pthread_cond_t condition;
  CHECK(QIV_CondCreate(&condition) == 0);
  CHECK(QIV_CondSignal(&condition) == 0);
  CHECK(QIV_CondBroadCast(&condition) == 0);
  CHECK(QIV_CondDestroy(&condition) == 0);
}

static void UseSharedMutex(void) {
  QIV_HANDLE mutex = NULL;
  CHECK(QIV_SharedMutexCreate(&mutex) == QIV_OK);
  CHECK(QIV_SharedMutexLockShared(&mutex) == QIV_OK);
  CHECK(QIV_SharedMutexTryLock(&mutex) == QIV_ERROR);
  CHECK(QIV_SharedMutexUnlockShared(&mutex) == QIV_OK);
  CHECK(QIV_SharedMutexLock(&mutex) == QIV_OK);
  CHECK(QIV_SharedMutexTryLockShared(&mutex) == QIV_ERROR);
  CHECK(QIV_SharedMutexUnlock(&mutex) == QIV_OK);
  CHECK(QIV_SharedMutexDestroy(&mutex) == QIV_OK);
}

static void UseAtomics(void) {
  int word = 3;
  void* pointer = NULL;
  CHECK(QIV_InitAtomic_Inter() == QIV_OK);
  CHECK(QIV_AtomicCas(&word, 5, 3) == 3);
  CHECK(QIV_AtomicInc(&word) == 5);
  CHECK(QIV_AtomicDec(&word) == 6);
  CHECK(QIV_AtomicAdd(&word, 5) == 5);
  CHECK(QIV_AtomicSet(&word, 1) == 10 && word == 1);
  CHECK(QIV_AtomicCasPtr(&pointer, &word, NULL) == NULL && pointer == &word);
  CHECK(QIV_FiniAtomic_Inter() == QIV_OK);
}

static void UseEvent(void) {
  QIV_NETWORK_EVENTS_T found;
  QIV_HANDLE events[2];
  const int socket = QIV_CreateSocket(AF_INET, SOCK_DGRAM, 0);
  events[0] = QIV_CreateEvent(0);
  events[1] = QIV_CreateEvent(1);
  CHECK(QIV_WaitForSingleObject(events[0], 0) == QIV_WAIT_TIMEOUT);
  CHECK(QIV_WaitForMultipleObjects(2, events, 0, -1) == 1);
  CHECK(QIV_ResetEvent(events[1]) == QIV_TRUE);
  CHECK(QIV_SetEvent(events[0]) == QIV_TRUE);
  CHECK(QIV_WaitForSingleObject(events[0], -1) == QIV_WAIT_SIGNALLED);
  CHECK(QIV_EventSelect(socket, events[1], QIV_EVENT_WRITE) == 0);
  CHECK(QIV_WaitForMultipleObjects(1, &events[1], 0, -1) == 0);
  CHECK(QIV_EnumNetworkEvents(socket, events[1], &found) == 0);
  CHECK(found.events == QIV_EVENT_WRITE);
  CHECK(QIV_CloseEvent(events[0]) == QIV_TRUE);
  CHECK(QIV_CloseEvent(events[1]) == QIV_TRUE);
  CHECK(QIV_CloseSocket(socket, 0) == 0);
}

static void* StoreSelfId(void* id) {
  *(unsigned int*)id = QIV_Thread_GetSelfId();
  return NULL;
}

static void UseThread(void) {
  unsigned int self = QIV_INVALID_ID;
  const unsigned int id = QIV_Thread_Create(StoreSelfId, &self, 0, 0, 0, 0);
  const unsigned int key = QIV_ThreadTls_Create();
  CHECK(id != QIV_INVALID_ID);
  CHECK(QIV_Thread_Wait(id) == 0);
  CHECK(self == id);
  CHECK(key != QIV_INVALID_ID);
  CHECK(QIV_ThreadTls_SetValue(key, &self) == 0);
  CHECK(QIV_ThreadTls_GetValue(key) == &self);
  CHECK(QIV_ThreadTls_Destroy(key) == 0);
}

static void UseThreadPool(void) {
  unsigned int id = 0;
  QIV_HANDLE pool = QIV_ThreadPool_Create(1, 2);
  CHECK(pool != NULL);
  CHECK(QIV_ThreadPool_Work(pool, StoreSelfId, &id) == 0);
  CHECK(QIV_ThreadPool_Destroy(pool) == 0);
  CHECK(id != 0);
  pool = QIV_ThreadPool_CreateFlex(0, 1, 0, 1000);
  CHECK(QIV_ThreadPool_WorkEx(pool, StoreSelfId, &id, 1) == 0);
  CHECK(QIV_ThreadPool_Destroy(pool) == 0);
}

static void PostSemaphore(unsigned int id, void* sem) {
  (void)id;
  QIV_SemPost((sem_t*)sem);
}

static void UseTimer(void) {
  sem_t called;
  unsigned int id = 256;
  CHECK(QIV_SemCreate(&called, 0) == 0);
  CHECK(QIV_SetTimer(PostSemaphore, &called, 1, &id) == 0);
  CHECK(id == 0);
  CHECK(QIV_SemWait(&called) == 0);
  CHECK(QIV_SemWait(&called) == 0);
  CHECK(QIV_KillTimer(id) == 0);
  CHECK(QIV_KillTimer(256) == -1);
  CHECK(QIV_SemDestroy(&called) == 0);
}

static void PostHandled(void* sem) { QIV_SemPost((sem_t*)sem); }

static void UseFlexibleThreadPool(void) {
  sem_t handled;
  const QIV_HANDLE pool = QIV_ThreadPoolFlex_Create(2, 1000, PostHandled, 0);
  CHECK(pool != NULL);
  CHECK(QIV_SemCreate(&handled, 0) == 0);
  CHECK(QIV_ThreadPoolFlex_Work(pool, &handled) == 0);
  CHECK(thrmgr_dispatch(pool, &handled) == 1);
  CHECK(QIV_SemWait(&handled) == 0);
  CHECK(QIV_SemWait(&handled) == 0);
  CHECK(thrmgr_getQSize(pool) == 0);
  CHECK(QIV_ThreadPoolFlex_DestroyEx(pool, -1) == 0);
  CHECK(QIV_SemDestroy(&handled) == 0);
}

static void UseMemoryPool(void) {
  const QIV_HANDLE pool = QIV_MemoryPool_Create(100, 1, 2, 1, -1, 0);
  void* const block = QIV_MemoryPool_Alloc(pool);
  CHECK(block != NULL);
  CHECK(QIV_MemoryPool_Size(pool) == 100);
  CHECK(QIV_MemoryPool_IdleSize(pool) == 0);
  QIV_MemoryPool_Free(pool, block);
  CHECK(QIV_MemoryPool_IdleSize(pool) == 100);
  QIV_MemoryPool_Destroy(pool);
}

static void UseTrackedMemoryPool(void) {
  const QIV_HANDLE pool = QIV_MemoryPoolEx_Create(1, 2, -1, 0, 1000);
  void* const bytes = QIV_MemoryPoolEx_Alloc(pool, 300);
  CHECK(bytes != NULL);
  CHECK(QIV_MemoryPoolEx_Size(pool) == 1000);
  CHECK(QIV_MemoryPoolEx_IdleSize(pool) == 700);
  QIV_MemoryPoolEx_Free(pool, bytes);
  QIV_MemoryPoolEx_Destroy(pool);
}

static void UseGlobalMemoryPool(void) {
  void* bytes;
  CHECK(QIV_MemoryPoolGlobal_Init(0) == 1);
  bytes = QIV_MemoryPoolGlobal_Alloc(100);
  CHECK(bytes != NULL);
  CHECK(QIV_MemoryPoolGlobal_Size() == 12810240);
  CHECK(QIV_MemoryPoolGlobal_IdleSize() == 12810140);
  QIV_MemoryPoolGlobal_Free(bytes);
  CHECK(QIV_FiniMemoryPool_Inter() == 0);
  CHECK(QIV_InitMemoryPool_Inter(0) == 0);
}

static void UseMessageQueue(void) {
  static QIV_MSG_BLOCK_T message;
  QIV_MQ_INTER* queue = NULL;
  CHECK(QIV_MsgQCreateEx(&queue) == 0);
  message.iMsgType = 7;
  message.iPriority = -1;
  message.iMsgLen = 3;
  memcpy(message.chMsgData, "abc", 3);
  CHECK(QIV_MsgQSendEx(queue, &message) == 0);
  memset(&message, 0, sizeof message);
  message.iMsgLen = QIV_MSGQ_MAX_DATA;
  CHECK(QIV_MsgQReceiveEx(queue, &message, QIV_INFINITE) == 0);
  CHECK(message.iMsgType == 7 && message.iPriority == -1 && message.iMsgLen == 3);
  CHECK(memcmp(message.chMsgData, "abc", 3) == 0);
  CHECK(QIV_MsgQReceiveEx(queue, &message, 1) == -1);
  CHECK(QIV_MsgQDestroyEx(queue) == 0);
}

static void UseTraceRecord(void) { CHECK(sizeof(QIV_TRACEINFO) > 2 * 64); }

static void UseHashTables(void) {
  struct QIV_HSEARCH_DATA* names = &QIV_HSEARCH_DATA;
  struct QIV_HSEARCH_INTDATA* numbers = &QIV_HSEARCH_INTDATA;
  const struct QIV_HSEARCH_ITEM name = {"one", 1};
  const struct QIV_HSEARCH_INTITEM number = {2, 20};
  unsigned int data = 0;
  CHECK(names->size == 0 && numbers->size == 0);
  CHECK(QIV_SimpleHashCreate(8, &names) == 0);
  CHECK(QIV_SimpleHashEnter(&name, names) == 0);
  CHECK(QIV_SimpleHashFind("one", &data, names) == 0 && data == 1);
  CHECK(QIV_SimpleHashRemove("one", names) == 0);
  CHECK(QIV_SimpleHashDestroy(names) == 0);
  CHECK(QIV_SimpleIntHashCreate(8, &numbers) == 0);
  CHECK(QIV_SimpleIntHashEnter(&number, numbers) == 0);
  CHECK(QIV_SimpleIntHashFind(2, &data, numbers) == 0 && data == 20);
  CHECK(QIV_SimpleIntHashRemove(2, numbers) == 0);
  CHECK(QIV_SimpleIntHashDestroy(numbers) == 0);
}

static void UseAlignedMemory(void) {
  unsigned char* const memory = (unsigned char*)QIV_AlignedMalloc(100, 64);
  CHECK(memory != NULL && memory[99] == 0);
  QIV_AlignedFree(memory);
  CHECK(QIV_AlignedMalloc(100, 48) == NULL);
}

static void CompareBytes(char* data, int len, void* same) {
  *(int*)same = len == 3 && memcmp(data, "abc", 3) == 0;
}

static void UseCycleBuffer(void) {
  QIV_HANDLE buffer = NULL;
  unsigned int count = 0;
  int same = 0;
  CHECK(QIV_CycleBufferInit(&buffer, 16, CompareBytes, &same) == 0);
  CHECK(QIV_CycleBufferWrite(buffer, "abc", 3) == 0);
  CHECK(QIV_CycleBufferValue(buffer, &count) == 0 && count == 3);
  CHECK(QIV_CycleBufferRead(buffer) == 0);
  CHECK(same);
  CHECK(QIV_CycleBufferDestroy(buffer) == 0);
}

static void UseTime(void) {
  QIV_TIME_EXP_T parts;
  QIV_TIME_T back = 0;
  const QIV_TIME_T now = QIV_TimeNow();
  const qiv_int64 tick = QIV_GetTimeTick64();
  CHECK(QIV_ExpTimeFromTimeGMT(now, &parts) == 0);
  CHECK(QIV_TimeFromExpTimeGMT(&parts, &back) == 0);
  CHECK(back == now);
  CHECK(QIV_GetTimeTick64() >= tick);
}

static void UseAddress(void) {
  QIV_ADDR_T address;
  char text[64];
  CHECK(QIV_MakeAddrByString(AF_INET, "192.0.2.7", 80, &address) == 0);
  CHECK(QIV_GetAddrPort(&address) == 80);
  CHECK(QIV_GetAddrType(&address) == AF_INET);
  CHECK(QIV_GetAddrStringEx(&address, text, sizeof text) != NULL);
  CHECK(strncmp(text, "192.0.2.7", 9) == 0);
}

static void UseAdapters(void) {
  QIV_ADAPTER_INFO* adapters = NULL;
  QIV_ADDRINFO_T hints;
  QIV_ADDRINFO_T* answers = NULL;
  unsigned char mac[QIV_MAC_BYTES];
  unsigned int length = sizeof mac;
  int family = 0;
  char name[256];
  memset(&hints, 0, sizeof hints);
  CHECK(QIV_GetAdapterInfoEx(&adapters, &family) == 0);
  CHECK(QIV_FreeAdapterInfo(adapters) == 0);
  CHECK(QIV_GetMacAddr("255.255.255.255", mac, &length) == -1);
  CHECK(QIV_GetHostName(name, sizeof name) == 0);
  CHECK(QIV_GetAddressInfo("127.0.0.1", "80", &hints, &answers) == 0);
  CHECK(answers != NULL && QIV_GetAddrPort(&answers->addr) == 80);
  CHECK(QIV_FreeAddressInfo(answers) == 0);
  CHECK(QIV_GetAddressByName("127.0.0.1") != NULL);
  CHECK(QIV_Ntohl(QIV_Htonl(1)) == 1);
}

static void UseSocketAndPoll(void) {
  QIV_ADDR_T address;
  struct pollfd record;
  const int socket = QIV_CreateSocket(AF_INET, SOCK_STREAM, 0);
  CHECK(socket >= 0);
  CHECK(QIV_MakeAddrByString(AF_INET, "127.0.0.1", 0, &address) == 0);
  CHECK(QIV_Bind(socket, &address) == 0);
  CHECK(QIV_Listen(socket, 1) == 0);
  record.fd = socket;
  record.events = POLLIN;
  record.revents = 0;
  CHECK(QIV_Poll(&record, 1, 0) == 0);
  CHECK(QIV_CloseSocket(socket, 0) == 0);
}

static sem_t g_received;

static void OnReceived(unsigned int error, unsigned int bytes, void* user) {
  (void)error;
  *(unsigned int*)user = bytes;
  QIV_SemPost(&g_received);
}

static void UseAsyncIo(void) {
  int ends[2];
  char buffer[8];
  unsigned int received = 0;
  const QIV_HANDLE queue = QIV_AIO_CreateQueueEx(1, 0);
  CHECK(QIV_SemCreate(&g_received, 0) == 0);
  CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  CHECK(QIV_AsyncIO_BindIOHandleToQueueEx(ends[0], queue) == 0);
  CHECK(QIV_AsyncIO_BindIOHandleToQueueEx(ends[1], queue) == 0);
  CHECK(QIV_AsyncIO_RecvEx(ends[0], buffer, sizeof buffer, &received, OnReceived) == 0);
  CHECK(QIV_AsyncIO_SendEx(ends[1], "abc", 3, NULL, NULL) == 0);
  CHECK(QIV_SemWait(&g_received) == 0);
  CHECK(received == 3);
  CHECK(memcmp(buffer, "abc", 3) == 0);
  CHECK(QIV_AsyncIO_UnBindIOHandleEx(ends[0], queue) == 0);
  CHECK(QIV_AsyncIO_UnBindIOHandleEx(ends[1], queue) == 0);
  CHECK(QIV_CloseSocket(ends[0], 0) == 0);
  CHECK(QIV_CloseSocket(ends[1], 0) == 0);
  CHECK(QIV_AsyncIO_DestroyQueueEx(queue) == 0);
  CHECK(QIV_SemDestroy(&g_received) == 0);
}

static void UseLegacyAsyncIo(void) {
  char buffer[8] = "";
  CHECK(QIV_AsyncIO_CreateQueue() == -1);
  CHECK(QIV_AsyncIO_CreateQueueEx(2) == -1);
  CHECK(QIV_AsyncIO_DestroyQueue(-1) == -1);
  CHECK(QIV_AsyncIO_BindIOHandleToQueue(buffer, -1) == -1);
  CHECK(QIV_AsyncIO_BindCallBackToIOHandle(buffer, NULL) == -1);
  CHECK(QIV_AsyncIO_PostQueuedCompleteStatus(-1, 0ul, 0ul, NULL) == -1);
  CHECK(QIV_AsyncIO_Send(buffer, buffer, 8ul, NULL) == -1);
  CHECK(QIV_AsyncIO_Recv(buffer, buffer, 8ul, NULL) == -1);
  CHECK(QIV_AsyncIO_SendTo(buffer, buffer, 8ul, NULL, NULL) == -1);
  CHECK(QIV_AsyncIO_RecvFrom(buffer, buffer, 8ul, NULL, NULL) == -1);
  CHECK(QIV_AsyncIO_WriteFile(buffer, buffer, 8ul, NULL) == -1);
  CHECK(QIV_AsyncIO_ReadFile(buffer, buffer, 8ul, NULL) == -1);
}

static void UseDebug(void) {
  (void)QIV_OutputDebug("a line of the %s program", "C");
  QIV_Debug();
  QIV_Debug("%d %s", 1, "and more", 2.5);
  qiv2_log(1);
  qiv2_log("one", 2, 2.5);
}

static void UseLog(void) {
  char head[64];
  CHECK(WriteLog(LOG_INF, __FILE__, __LINE__, "no target: %d", 1) == -5);
  CHECK(EnableTarget(LOG_TARGET_DEBUG, NULL, 0, 0) == 0);
  CHECK(WriteLog(LOG_INF, __FILE__, __LINE__, "from %s", "C99") == 0);
  CHECK(DisableTarget(LOG_TARGET_DEBUG) == 0);
  CHECK(AdjustLogLevel(LOG_ERR) == 0);
  CHECK(StopLogService(true) == 0);
  CHECK(StartLogService() == 0);
  CHECK(FormatTimeAndName(head, sizeof head, LOG_DBG, "f", 1) > 0);
  CHECK(GetLogService() != NULL);
  CHECK(QIV_Log(0, NULL) == 0);
}

static void UseSystem(void) {
  QIV_UUID_T id;
  char text[64];
  CHECK(QIV_GetCPUNumber() >= 1);
  CHECK(QIV_GetUUID(&id) == 0);
  CHECK(QIV_StringFromUUID(&id, text, sizeof text) == 0);
  CHECK(strlen(text) >= 32);
}

static void UseTexts(void) {
  const char* const text = "abcABC";
  char copy[8];
  char* duplicate = QIV_Strdup(text);
  CHECK(duplicate != NULL && QIV_Strcmp(duplicate, text) == 0);
  free(duplicate);
  duplicate = QIV_Strndup(text, 3);
  CHECK(duplicate != NULL && QIV_Strcmp(duplicate, "abc") == 0);
  free(duplicate);
  QIV_Strcpy(copy, "12");
  CHECK(QIV_Strncmp(copy, "123", 2) == 0);
  QIV_Strncpy(copy, "ABC", sizeof copy);
  CHECK(QIV_Strcasecmp(copy, "abc") == 0);
  CHECK(QIV_Strncasecmp(copy, "abd", -1) == 0);
  CHECK(QIV_Strchr(text, 'C') == text + 5);
  CHECK(QIV_Strnchr(text, 'C', 5) == NULL);
  CHECK(QIV_Strstr(text, "AB") == text + 3);
  CHECK(QIV_Strnstr(text, "ABx", 2) == text + 3);
  CHECK(QIV_Strcasestr(text, "BCA") == text + 1);
}

static void UseNumbers(void) {
  const char* const text = "-0x1F,";
  char written[33];
  char* end = NULL;
  CHECK(strcmp(QIV_Itoa(written, -42, 10), "-42") == 0);
  CHECK(strcmp(QIV_Ltoa(written, 255, 16), "ff") == 0);
  CHECK(QIV_StrToi64(text, &end, 0) == -31 && *end == ',');
  CHECK(QIV_StrToi32(text, &end, 0) == -31 && *end == ',');
  CHECK(QIV_Atoi64("9223372036854775807") == 9223372036854775807LL);
  CHECK(QIV_Atoi32("2147483647") == 2147483647);
}

static void UseFiles(void) {
  const char* const path = "qiv_c_api_test.tmp";
  QIV_FILE_STAT status;
  qiv_int64 position = 0;
  char text[4] = "";
  int count = 0;
  const int file = QIV_OpenFile(path, QIV_OPEN_READ | QIV_OPEN_WRITE | QIV_OPEN_CREATE,
                                QIV_PERM_OWNER_READ | QIV_PERM_OWNER_WRITE);
  CHECK(QIV_OpenFile(path, QIV_OPEN_CREATE, 0) == -1);
  CHECK(QIV_WriteFile(file, "abc", 3, &count) == 0 && count == 3);
  CHECK(QIV_FileSeek(file, 0, SEEK_SET, &position) == 0 && position == 0);
  CHECK(QIV_ReadFile(file, text, 3, &count) == 0 && count == 3);
  CHECK(strcmp(text, "abc") == 0);
  CHECK(QIV_FileStat(file, &status) == 0);
  CHECK(status.dwType == QIV_FILE_TYPE_REGULAR && status.llSize == 3);
  QIV_FileFlush(file);
  CHECK(QIV_FileIsEOF(file) == 1);
  QIV_CloseFile(file);
  CHECK(QIV_CopyFile(path, path, 0) == -1);
  CHECK(QIV_DeleteFile(path) == 0);
}

static void UseDirectory(void) {
  _FILE_FIND_INFO info;
  const QIV_HANDLE directory = QIV_OpenDir("/proc/self");
  int found = 0;
  CHECK(directory != NULL);
  while (QIV_FindFileInDir(directory, &info) == 0) {
    if (strcmp(info.szName, "exe") == 0) found = info.dwType == QIV_FILE_TYPE_REGULAR;
  }
  CHECK(found);
  CHECK(QIV_CloseDir(directory) == 0);
}

static void UseDynamicLibrary(void) {
  CHECK(QIV_LoadDSo("/no/such/library.so") == NULL);
  CHECK(QIV_GetDsoSym(NULL, "symbol") == NULL);
  CHECK(QIV_UnloadDSo(NULL) == -1);
}

int main(void) {
  CHECK(QIV_Init() == QIV_OK);
  UseLibrary();
  UseLastError();
  UseMutex();
  UseSemaphore();
  UseCondition();
  UseSharedMutex();
  UseAtomics();
  UseEvent();
  UseThread();
  UseThreadPool();
  UseTimer();
  UseFlexibleThreadPool();
  UseMemoryPool();
  UseTrackedMemoryPool();
  UseGlobalMemoryPool();
  UseMessageQueue();
  UseTraceRecord();
  UseHashTables();
  UseAlignedMemory();
  UseCycleBuffer();
  UseTime();
  UseAddress();
  UseAdapters();
  UseSocketAndPoll();
  UseAsyncIo();
  UseLegacyAsyncIo();
  UseDebug();
  UseLog();
  UseTexts();
  UseNumbers();
  UseFiles();
  UseDirectory();
  UseDynamicLibrary();
  UseSystem();
  CHECK(QIV_Fini() == 0);
  return g_failures == 0 ? 0 : 1;
}
