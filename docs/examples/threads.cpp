// docs/examples/threads.cpp
#include <hybase/hcutil/HCLazyDelete.h>
#include <hybase/hcutil/HCMutex.h>
#include <hybase/hcutil/HCObjVector.h>
#include <hybase/hcutil/HCPtrKeeper.h>
#include <hybase/hcutil/HCThread.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <new>

// A thread that reads sensors again and again, while others add and remove them.

static std::atomic<int> g_deleted{0};

// Owned by the vector of the sampler. Whoever took a pointer to it under the sampler's mutex may
// use it for a second and a half: two seconds of delay, less one look of the collector.
class Sensor : public HCObjOfVector {
  public:
    explicit Sensor(int id) : m_id(id) {}
    ~Sensor() override { g_deleted++; }  // the collector's thread: quick, and nothing handed over
    int TryDelayDelete() override { return 2; }
    bool IsEqual(void* key, void*) override { return *static_cast<int*>(key) == m_id; }

    void Read() { m_reads++; }
    int Reads() const { return m_reads; }

  private:
    const int m_id;
    std::atomic<int> m_reads{0};
};

class Sampler : public HCThread {
  public:
    Sampler() : HCThread(kName, false, nullptr), m_hMutex(arch_mutex_create()) {}

    // First the thread, then what it uses.
    ~Sampler() override {
        Stop();
        arch_mutex_delete(m_hMutex);
    }

    bool Start() {
        m_bRun = true;
        return StartThread() != nullptr;
    }

    void Stop() {
        m_bRun = false;
        Join(nullptr);  // harmless when no thread runs
    }

    // A handle for those who ask later and must not hold a pointer; 0 when memory is short.
    long Add(int id) {
        auto* sensor = new (std::nothrow) Sensor(id);
        if (sensor == nullptr) return 0;
        HCMutex lock(m_hMutex);
        if (m_sensors.Append(sensor) < 0) {
            delete sensor;  // the vector owns it only from a success on
            return 0;
        }
        return m_handles.Add(sensor, 0, 0);
    }

    // The handle goes first, so that nobody finds a sensor by it that is about to go.
    void Remove(int id, long handle) {
        m_handles.Delete(handle);
        HCMutex lock(m_hMutex);
        m_sensors.Del(m_sensors.GetIndex(&id, nullptr));
    }

    // -1 when the sensor is gone.
    int Reads(long handle) {
        const HCPtrKeeper::Value_t* value = m_handles.GetAndLock(handle);
        const int reads = value->ptr != nullptr ? static_cast<Sensor*>(value->ptr)->Reads() : -1;
        const bool known = value->ptr != nullptr;
        m_handles.Unlock(handle);
        if (!known) m_handles.Delete(handle);  // asking has made an empty entry
        return reads;
    }

    void* OnThread(void*) override {
        for (int next = 0; m_bRun; next++) {
            if (Sensor* sensor = Pick(next)) sensor->Read();  // slow: no lock is held
            usleep(1000);
        }
        return nullptr;
    }

  private:
    static constexpr char kName[32] = "Sampler";  // HCThread copies 32 bytes

    Sensor* Pick(int next) {
        HCMutex lock(m_hMutex);
        const int count = m_sensors.GetCnt();
        return count > 0 ? static_cast<Sensor*>(m_sensors.At(next % count)) : nullptr;
    }

    arch_mutex_t m_hMutex;  // guards m_sensors
    HCObjVector m_sensors;
    HCPtrKeeper m_handles;  // has a lock of its own
    std::atomic<bool> m_bRun{false};
};

// Anything can be deleted late, not only what a vector held.
struct Snapshot : HCLazyDelItem {
    ~Snapshot() override { g_deleted++; }
};

static bool WaitFor(int deleted, int tenths) {
    while (g_deleted < deleted && tenths-- > 0) usleep(100000);
    return g_deleted == deleted;
}

int main() {
    Sampler sampler;
    const long door = sampler.Add(7);
    const long window = sampler.Add(8);
    if (door != 1 || window != 2 || !sampler.Start()) return 1;
    while (sampler.Reads(door) < 10 || sampler.Reads(window) < 10) usleep(10000);

    sampler.Remove(7, door);
    printf("removed: door %d, deleted %d\n", sampler.Reads(door), g_deleted.load());
    if (sampler.Reads(door) != -1 || g_deleted != 0) return 2;
    if (!WaitFor(1, 50)) return 3;
    printf("later: deleted %d\n", g_deleted.load());

    auto* snapshot = new Snapshot;
    if (HCLazyDelete::instance()->AddItem(snapshot, 1) != 0) {
        delete snapshot;  // refused: it is still ours
        return 4;
    }
    if (!WaitFor(2, 50)) return 5;
    sampler.Stop();
    const int reads = sampler.Reads(window);
    usleep(50000);
    printf("stopped: the window is read no more: %s\n",
           sampler.Reads(window) == reads ? "yes" : "no");
    return sampler.Reads(window) == reads ? 0 : 6;
}
