#pragma once

#include <memory>
#include <string>
#include <utility>

struct PeloraUrlQuery;
struct PeloraReqBody;

// Base of the loader objects. init() fills defaults through configInit(); the other hooks
// are empty and exist to be overridden. Destruction writes "dealloc: <class name>" to the
// log, which is how leaks of loaders show up in the field.
class PeloraConfig {
  public:
    virtual ~PeloraConfig();
    PeloraConfig(const PeloraConfig&) = delete;
    PeloraConfig& operator=(const PeloraConfig&) = delete;

    static std::shared_ptr<PeloraConfig> init();
    // Construct a subclass and run its configInit(), the pattern every loader follows.
    template <class T, class... Args>
    static std::shared_ptr<T> initAs(Args&&... args) {
        auto object = std::make_shared<T>(std::forward<Args>(args)...);
        object->configInit();
        return object;
    }

    virtual void configInit() {}
    virtual void requestData() {}
    virtual void requestQuery(std::shared_ptr<PeloraUrlQuery> query,
                              std::shared_ptr<PeloraReqBody> body) {
        (void)query;
        (void)body;
    }

    const std::string& className() const { return className_; }

  protected:
    // Subclasses pass their own class name: the destructor of the base cannot ask for it.
    explicit PeloraConfig(std::string className = "PeloraConfig")
        : className_(std::move(className)) {}

  private:
    std::string className_;
};
