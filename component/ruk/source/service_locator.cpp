#include "ruk/service_locator.h"

namespace ruk {

intrusive_ptr<ITracer> NewTracer();

namespace {

class RuntimeService : public IService {
public:
    const char* GetName() const override { return "ruk.runtime"; }
};

class RootServiceLocator : public IServiceLocator {
public:
    result_t GetService(intrusive_ptr<IService>* service) override {
        if (service == nullptr) {
            return result::InvalidArgument;
        }
        *service = service_;
        return result::Success;
    }

    result_t CreateTracer(intrusive_ptr<ITracer>* tracer) override {
        if (tracer == nullptr) {
            return result::InvalidArgument;
        }
        *tracer = NewTracer();
        return result::Success;
    }

private:
    intrusive_ptr<IService> service_{new RuntimeService()};
};

}  // namespace

IServiceLocator* GetRootServiceLocator() {
    // Never destroyed: objects made from it may outlive static destruction order.
    static auto* locator = new RootServiceLocator();
    return locator;
}

}  // namespace ruk
