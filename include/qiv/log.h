/**
 * @file
 * The log service: lines of text that callers queue in memory and one thread writes to standard
 * output, to the debug output and to files of limited size.
 *
 * A line reads
 *
 *     [2026-11-15 10:30:07.000][DBG][FILE:session.cpp][LINE:7] text
 *
 * in local time, and ends in CR LF. The milliseconds are always 000.
 *
 * WriteLog() never waits for a target: it formats the line, copies it into a ring of 2 MiB and
 * returns. The service starts with the first line that passes, and stops with StopLogService(),
 * when its last target is disabled, or with the library's last QIV_Fini(). QIV_Log() is the short
 * way to switch it on and off. All functions may be called before QIV_Init(), by any threads at
 * once.
 *
 * What was queued before a target is disabled or the service is stopped still reaches the targets
 * that were enabled then. A process that exits while the service runs waits up to a second for the
 * queued lines. A child made by fork(2) starts with the service stopped, the file target off and
 * the other targets as they were; lines that were queued at the fork are written by the parent.
 *
 * The values of log_level are those of this header: <syslog.h> has a macro LOG_ERR of another
 * value, 3, which is LOG_INF here. Programs that include both write 1.
 *
 * Files are named qiv_log_N_w.log while they are written and qiv_log_N.log when they are full, with
 * N counted from 1 in each process.
 */
#ifndef QIV_LOG_H
#define QIV_LOG_H

#include <qiv/types.h>
#include <stdbool.h>

#ifdef __cplusplus
#include <pthread.h>
#include <qiv/mutex.h>

#include <atomic>
#include <deque>
#endif

QIV_EXTERN_C_BEGIN

/** The weight of a line. A line passes when its level is not above the service's level. */
typedef int log_level;

/** Where lines go. */
typedef int log_services;

/* <syslog.h> has a macro of this name, and another value for it. */
#ifdef LOG_ERR
#pragma push_macro("LOG_ERR")
#undef LOG_ERR
#define QIV_LOG_RESTORE_LOG_ERR
#endif

/** The values of log_level. Kept: LOG_DBG ranks above LOG_INF. */
enum {
  LOG_DISABLE = 0, /**< printed as "DISABLE"; as the service's level it lets only itself pass */
  LOG_ERR = 1,     /**< printed as "ERR" */
  LOG_DBG = 2,     /**< printed as "DBG" */
  LOG_INF = 3      /**< printed as "INF" */
};

#ifdef QIV_LOG_RESTORE_LOG_ERR
#pragma pop_macro("LOG_ERR")
#undef QIV_LOG_RESTORE_LOG_ERR
#endif

/** The values of log_services. */
enum {
  LOG_TARGET_CONSOLE = 0, /**< standard output */
  LOG_TARGET_DEBUG = 1,   /**< QIV_OutputDebugString() */
  LOG_TARGET_FILE = 2     /**< files in a directory */
};

/** The log service; its members are there in C++. */
typedef struct LogService LogService;

/**
 * Formats one line and queues it. Starts the service when it is not running.
 *
 * A line of more than 2044 characters, without its CR LF, is cut to that length.
 *
 * @param level   weight of the line; one that has no name is printed as "UNKNOWN"
 * @param file    source file; what follows its last "/" or "\" is printed
 * @param line    line in the source file
 * @param format  text of the line, with conversions of printf()
 * @return 0 when the line was queued;
 *         -1 no memory for the ring, or no thread;
 *         -2 the service was stopped with StopLogService(true), or is just being stopped;
 *         -3 the level does not pass; -4 the ring is full, and the line is dropped;
 *         -5 no target is enabled; -6 `file` or `format` is null; -7 the text cannot be formatted
 * @par Errors         errno stays as it was
 * @par Thread safety  any threads, but no signal handlers; lines of one thread keep their order
 * @par System         vsnprintf(3), localtime_r(3)
 */
QIV_API int WriteLog(log_level level, const char* file, int line, const char* format,
                     ...) QIV_NOEXCEPT QIV_PRINTF_FORMAT(4, 5);

/**
 * Sets the level up to which lines pass; LOG_INF, all of them, unless it is set.
 *
 * @param level  a log_level; one below 0 lets no named level pass
 * @return 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int AdjustLogLevel(log_level level) QIV_NOEXCEPT;

/**
 * Enables a target.
 *
 * Lines go on into a file that is open already until it is full, also when another directory is
 * given: disable the target first to change it.
 *
 * @param target   a log_services
 * @param arg      for LOG_TARGET_FILE the directory, at most 256 characters, in which "\" counts
 *                 as "/"; it is made when it is missing, its parent is not; null is "./qivlog/"
 * @param maxSize  for LOG_TARGET_FILE the most bytes that a file takes, unless a single line is
 *                 longer; 0 is 2097152
 * @param cyclic   for LOG_TARGET_FILE not 0 to count the files from 1 again after number 100
 * @return 0, also when the directory is too long or cannot be made; -6 for an unknown target
 * @par Errors         errno is not defined afterwards
 * @par Thread safety  any threads
 * @par System         mkdir(2)
 */
QIV_API int EnableTarget(log_services target, const void* arg, unsigned int maxSize,
                         unsigned int cyclic) QIV_NOEXCEPT;

/**
 * Disables a target, after the lines that are queued have been written to it. When that leaves no
 * target enabled, the service is stopped. A file that is open keeps its working name.
 *
 * @param target  a log_services
 * @return 0; -6 for an unknown target
 * @par Errors         errno is not defined afterwards
 * @par Thread safety  any threads
 * @par System         close(2)
 */
QIV_API int DisableTarget(log_services target) QIV_NOEXCEPT;

/**
 * Lets the service start again after StopLogService(true). The first line starts it.
 *
 * @return 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int StartLogService(void) QIV_NOEXCEPT;

/**
 * Stops the service when it runs: waits until the queued lines are written, ends the thread,
 * disables the file target and frees the ring. The other targets stay as they are.
 *
 * @param disable  true to refuse lines with -2 from now on until StartLogService(); false to let
 *                 the next line start the service again
 * @return 0
 * @par Errors         errno is not defined afterwards
 * @par Thread safety  any threads
 * @par System         pthread_join(3), close(2)
 */
QIV_API int StopLogService(bool disable) QIV_NOEXCEPT;

/**
 * The log service of the process, made by the first call.
 *
 * @return the service
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         pthread_atfork(3)
 */
QIV_API LogService* GetLogService(void) QIV_NOEXCEPT;

/**
 * Writes the head of a line: "[2026-11-15 10:30:07.000][DBG][FILE:session.cpp][LINE:7] ".
 *
 * @param dst    receives the head, cut to its size, and a NUL
 * @param size   bytes at `dst`
 * @param level  weight of the line
 * @param file   source file; what follows its last "/" or "\" is printed
 * @param line   line in the source file
 * @return length of the head as if it had not been cut; -1 when `file` is null, `dst` is null
 *         although `size` is not 0, or the time has no local form
 * @par Errors         errno is not defined afterwards
 * @par Thread safety  any threads
 * @par System         time(2), localtime_r(3), snprintf(3)
 */
QIV_API int FormatTimeAndName(char* dst, unsigned int size, log_level level, const char* file,
                              int line) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

/** One queued line. */
struct _LOG {
  char* text;          /**< the line, in the ring */
  unsigned int length; /**< its bytes, the CR, the LF and the final NUL included */
};

/**
 * A log service. GetLogService() gives the one that the functions above use; they are the usual way
 * to reach it. The members are there to be looked at; changing them is left to the member
 * functions, which may be called by any threads at once, but for WriteLogProc(). A service that a
 * program makes itself must not be used in a child made by fork(2).
 */
struct QIV_API LogService {
  LogService() noexcept;
  /** Gives queued lines up to a second to be written, then ends the service, and waits for a write
   *  that is in progress. */
  ~LogService();
  LogService(const LogService&) = delete;
  LogService& operator=(const LogService&) = delete;

  /** Starts the writer thread unless it runs. @return 0; -1 no memory or no thread; -2 disabled */
  int ServiceStart() noexcept;

  /**
   * Stops the service when it runs, with the file target, and frees the ring.
   *
   * @param wait  true to let the writer finish what is queued; false to drop that, and to wait only
   *              for a file that is just being written
   * @return 0
   */
  int ServiceStop(bool wait) noexcept;

  /**
   * Queues a text.
   *
   * @param text    the text; its last byte counts as a NUL whatever it is
   * @param length  bytes of the text; 0 queues nothing
   * @return 0; -2 the service is not running; -4 the ring is full; -6 `text` is null
   */
  int PushData(const char* text, unsigned int length) noexcept;

  /** The routine of the writer thread, which ServiceStart() makes and which is the only one to run
   *  it: writes what is queued until the service is stopped. @return null */
  static void* WriteLogProc(void* self);

  /**
   * Enables or disables the file target.
   *
   * @return what StartWriteFile() or StopWriteFile() gives
   */
  int SwitchFileService(bool on, const char* dir = nullptr, unsigned int maxSize = 0,
                        bool cyclic = true) noexcept;

  /** Enables the file target. @return 0; -6 when `dir` has more than 256 characters */
  int StartWriteFile(const char* dir, unsigned int maxSize) noexcept;

  /** Disables the file target and closes the file, which keeps its working name. @return 0 */
  int StopWriteFile() noexcept;

  /**
   * Appends a text to the log file, when the file target is enabled. A file that would become
   * larger than its limit is finished first.
   *
   * @return 0, also when the system does not take the text; -8 when a file could not be opened, or
   *         not be given its final name
   */
  int InputDataToFile(const char* text, unsigned int length) noexcept;

  std::atomic<bool> bRunning;      /**< the writer thread is up */
  std::atomic<log_level> logLevel; /**< lines up to this level pass */
  QIV_Mutex serviceMutex;          /**< held over a start and a stop */
  std::atomic<bool> bDisabled;     /**< the service refuses to start */
  std::atomic<bool> bConsole;      /**< LOG_TARGET_CONSOLE is enabled */
  std::atomic<bool> bDebugOut;     /**< LOG_TARGET_DEBUG is enabled */
  std::atomic<bool> bFileOut;      /**< LOG_TARGET_FILE is enabled */
  unsigned int hWriterThread;      /**< thread id; all bits set when there is none */
  int bQuit;                       /**< the writer thread ends once the queue is empty */
  pthread_mutex_t queueMutex;      /**< held over changes of the ring and the queue */
  char* pRingBase;                 /**< the ring; null while the service is stopped */
  char* pRingWrite;                /**< where the next line goes; null as above */
  unsigned int nRingFree;          /**< bytes that lines may still take, at most 2097152 */
  std::deque<_LOG>* logQueue;      /**< the lines that wait, oldest first; null as above */
  QIV_Mutex fileMutex;             /**< held over changes of the members below */
  int hLogFile;                    /**< descriptor of the open file, or -1 */
  unsigned int nFileIndex;         /**< the number of the current file, less 1 */
  bool bCyclic;                    /**< numbers start again after 100 */
  unsigned int nMaxFileSize;       /**< most bytes of a file; 0 while the target is disabled */
  char szLogDir[260];              /**< the directory, with its final "/" */

 private:
  friend LogService* GetLogService() noexcept;
  friend int DisableTarget(log_services target) noexcept;

  struct Batch;
  class QIV_INTERNAL Lifetime;

  QIV_INTERNAL bool MakeRing() noexcept;
  QIV_INTERNAL void LeaveRing() noexcept;
  QIV_INTERNAL void FreeLeftRing() noexcept;
  QIV_INTERNAL void JoinWriter() noexcept;
  QIV_INTERNAL char* Place(unsigned int length) noexcept;
  QIV_INTERNAL int Queue(const char* text, unsigned int length) noexcept;
  QIV_INTERNAL bool TakeBatch(Batch* batch) noexcept;
  QIV_INTERNAL void WriteBatch(const Batch& batch) noexcept;
  QIV_INTERNAL bool HasWritten(unsigned long long lines) noexcept;
  QIV_INTERNAL bool HasWriterEnded() noexcept;
  QIV_INTERNAL unsigned long long QueuedLines() noexcept;
  QIV_INTERNAL void FinishQueuedLines() noexcept;
  QIV_INTERNAL bool Close() noexcept;

  QIV_INTERNAL void AppendToFiles(const _LOG* lines, unsigned int count) noexcept;
  QIV_INTERNAL bool IsFull(long long end, unsigned int length) const noexcept;
  QIV_INTERNAL bool MakeRoom(long long end, unsigned int length) noexcept;
  QIV_INTERNAL bool FinishFile() noexcept;
  QIV_INTERNAL bool OpenFile() noexcept;
  QIV_INTERNAL void CloseFile() noexcept;

  QIV_INTERNAL void LockForFork() noexcept;
  QIV_INTERNAL void UnlockAfterFork() noexcept;
  QIV_INTERNAL void ResetInChild() noexcept;

  const char* m_inFlight;        // the first line that is being written, or null
  unsigned long long m_queued;   // lines since the start of the process
  unsigned long long m_taken;    // of these, taken out of the queue
  unsigned long long m_written;  // of these, written or dropped
  bool m_isReportingLostLine;
  bool m_hasWriterEnded;
  unsigned int m_leavingThread;  // a writer that has been told to end
  char* m_leftRing;              // what it may still read from
};

#endif  // __cplusplus

#endif
