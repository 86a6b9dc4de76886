#include "benchloop.h"

#include <QEvent>
#include <utility>

namespace zuvobench {

namespace {

// Counts the events delivered to objects of this thread while it lives.
class DeliveryCounter : public QObject {
public:
    DeliveryCounter() { QCoreApplication::instance()->installEventFilter(this); }
    ~DeliveryCounter() override { QCoreApplication::instance()->removeEventFilter(this); }
    Q_DISABLE_COPY(DeliveryCounter)
    int take() { return std::exchange(m_count, 0); }

protected:
    bool eventFilter(QObject*, QEvent*) override {
        ++m_count;
        return false;
    }

private:
    int m_count = 0;
};

} // namespace

void drainPosted(int maxGenerations) {
    DeliveryCounter counter;
    for (int i = 0; i < maxGenerations; ++i) {
        QCoreApplication::sendPostedEvents();
        if (counter.take() == 0)
            return;
    }
}

} // namespace zuvobench
