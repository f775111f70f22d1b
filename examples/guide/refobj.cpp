// A document that two threads and its maker share: it ends with the last one who has it.
#include <qiv/refobj.h>
#include <qiv/thread.h>

#include <cstddef>
#include <cstdio>
#include <string>

namespace {

int g_documents = 0;  // how many there are

class Document : public qiv::qiv_refobj {
 public:
  explicit Document(const std::string& text) : m_text(text), m_readers(0) { ++g_documents; }
  ~Document() override { --g_documents; }

  std::size_t Length() const { return m_text.size(); }
  void CountReader() { m_readers.increment(); }
  long Readers() const { return m_readers.get(); }

 private:
  const std::string m_text;
  qiv::qiv_atomic m_readers;
};

typedef qiv::cshared_ptr<Document> DocumentPointer;

// Takes over the reference that its starter has left to it.
void* Read(void* argument) {
  const DocumentPointer document = DocumentPointer::adopt(static_cast<Document*>(argument));
  if (document->Length() == 14) document->CountReader();
  return nullptr;
}

unsigned int StartReader(DocumentPointer document) {
  const unsigned int id = QIV_Thread_Create(Read, document.get(), 0, 0, 0, 0);
  if (id != QIV_INVALID_ID) document.detach();  // the thread's reference now
  return id;
}

}  // namespace

int main() {
  DocumentPointer document(new Document("a shared text\n"));
  const unsigned int first = StartReader(document);
  const unsigned int second = StartReader(document);
  if (first != QIV_INVALID_ID) QIV_Thread_Wait(first);
  if (second != QIV_INVALID_ID) QIV_Thread_Wait(second);

  const long readers = document->Readers();
  std::printf("readers: %ld, documents: %d\n", readers, g_documents);
  document = nullptr;  // the last reference
  std::printf("documents: %d\n", g_documents);
  return readers == 2 && g_documents == 0 ? 0 : 1;
}
