#pragma once

#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

class Frame;
class IniFileIO;
class RegisterTable;

// Binding record of one bound variable: a scalar or a fixed array of 1-, 2- or 4-byte integers.
struct TVarInfo {
  std::pair<std::string, std::string> name;  // INI section and key, also the register table name
  int size = 4;                              // bytes per element: 1, 2, anything else means 4
  int count = 1;                             // elements; 1 for a scalar
  bool isSigned = false;  // only 2-byte elements read as signed; 1-byte are unsigned, 4-byte signed
};

// One register address and the value to write there.
struct TAddrVal {
  int address = 0;
  int value = 0;
};

// Global run settings handed to every block operation. The codec reads the frame index and the
// CFA layout; the remaining fields are filled by the random-test driver.
struct TGlobalParam {
  int frameIndex = 0;  // numbers the golden files; negative writes none
  int cfa = 0;         // CFA_TYPE_HW value
  int width = 0;       // input picture size of the current test
  int height = 0;
  int depth = 12;         // input bit depth
  int frameCount = 1;     // frames per test
  int testIndex = 0;      // number of the current random test
  unsigned int seed = 0;  // seed the current test was drawn from
  bool useRandomRange =
      false;  // draw parameters from randomMin..randomMax instead of minVal..maxVal
};

// One register field of a parameter. Registers are 16 bits wide; a field wider than what is left of
// its first register continues in the low bits of the following ones (up to spanHi - spanLo more).
struct TRegEntity {
  int address = -1;  // first register; negative: the parameter occupies no register here
  int spanLo = 0;    // span of registers, two bounds; spanLo > spanHi is an empty span
  int spanHi = 0;
  int dstHi = 15;  // bit range within the first register
  int dstLo = 0;
  int srcHi = 31;  // bit range within the element
  int srcLo = 0;
  int index = -1;  // array element the field takes; -1: the field's position in the list
};

// The register table's record of one parameter.
struct TParamInfo {
  std::string section;
  std::string key;
  int minVal = 0;  // checking range, inclusive
  int maxVal = 0;
  int randomMin = 0;  // range used for randomisation on request
  int randomMax = 0;
  std::vector<int> defaultVal;  // empty: no default
  bool iniExcluded = false;     // kept out of INI loading and saving
  std::vector<TRegEntity> regs;
};

// One problem a parameter operation found, as data: the parameter, the kind of problem and, for a
// value out of range, the element, the value and the range. The operations that collect texts
// append paramProblemText of each; a tool can read the fields instead of the sentence.
struct ParamProblem {
  enum class Kind {
    NotInTable,   // the register table has no entry for the name
    NotInIni,     // the INI file has no such key; the variable kept its value
    OutOfRange,   // value (element `element`) is outside minVal..maxVal; it stays stored
    ArrayLength,  // the array read gave fewer than `count` elements; the variable is unchanged
  };
  Kind kind = Kind::NotInTable;
  std::pair<std::string, std::string> name;  // section, key
  int element = 0;
  int value = 0;
  int minVal = 0;
  int maxVal = 0;
  int count = 1;  // elements bound
};

// The block's own message for a problem, e.g.
// Parameter "FBC/reg_tr_ext_en" is out of range! 5 is not in [0, 1]!
std::string paramProblemText(const ParamProblem& problem);

// Replaces bits dstHi..dstLo of reg by the low bits of value's bits srcHi..srcLo.
void setBits(int value, int srcHi, int srcLo, int& reg, int dstHi, int dstLo);

// The part of a register field that lands in one 16-bit register: `width` bits of the element,
// from element bit `source` up (the element read as a 32-bit signed value shifted arithmetically,
// so a source of 31 repeats the sign), in bits shift..shift+width-1 of register `address`.
struct TRegSlice {
  int address = 0;
  int shift = 0;
  int width = 0;
  int source = 0;
};
// The slices of a field, first register first; a field that takes no bits has none.
std::vector<TRegSlice> registerSlices(const TRegEntity& field);

// One register field of a bound parameter as the register composition reads it: the binding,
// its table record, the field, the element of the variable that the field takes and its value.
struct TFieldUse {
  const TVarInfo* var = nullptr;
  const TParamInfo* info = nullptr;
  const TRegEntity* field = nullptr;
  int element = 0;
  int value = 0;
};

// The library-wide MT19937 generator used for parameter randomisation.
void setRandSeed(unsigned int seed);
// Uniform integer in lo..hi (inclusive) from the library-wide generator.
int randomVal(int lo, int hi);

// Base of every image-processing block: name, parameter bindings, run cycle, register generation.
class IPBase {
 public:
  explicit IPBase(const std::string& name);
  IPBase(const IPBase&) = delete;
  IPBase& operator=(const IPBase&) = delete;
  virtual ~IPBase();

  virtual bool init(IniFileIO& ini, RegisterTable& regs, TGlobalParam& g,
                    std::vector<std::string>& errors);
  virtual void allocateOutputFrame(const std::vector<Frame*>& in, std::vector<Frame*>& out);
  virtual bool execute(std::vector<Frame*>& in, std::vector<Frame*>& out, TGlobalParam& g);
  virtual void dumpRegister(TGlobalParam& g);
  virtual void setEnable(bool on);
  virtual bool isEnabled();
  virtual bool randomSpecificParam(RegisterTable& regs, TGlobalParam& g, bool useRandomRange,
                                   std::vector<std::string>& errors);
  virtual bool getRegisterAddress(RegisterTable& regs, std::unordered_set<int>& addresses,
                                  std::vector<std::string>& errors);
  virtual bool getRegisterValue(RegisterTable& regs, std::map<int, int>& values,
                                std::vector<std::string>& errors);
  // Every register field of the bound parameters, in the order getRegisterValue composes them.
  bool getRegisterFields(RegisterTable& regs, std::vector<TFieldUse>& fields,
                         std::vector<std::string>& errors);
  virtual bool getRegisterValueSequence(RegisterTable& regs, std::vector<TAddrVal>& seq,
                                        std::vector<std::string>& errors);
  virtual bool checkParam(RegisterTable& regs, std::vector<std::string>& errors);
  virtual bool saveParam(IniFileIO& ini, RegisterTable& regs, std::vector<std::string>& errors,
                         bool onlyChanged);

  std::string getName() const;
  std::string getNameLower() const;
  std::string getNameUpper() const;
  std::string getSectionNameLower() const;
  std::string getEnableKey() const;
  void setInstanceName(const std::string& instanceName) { m_instanceName = instanceName; }

  bool run(std::vector<Frame*>& in, std::vector<Frame*>& out, TGlobalParam& param,
           std::string dumpDir, int index);
  void release();

  void bind(void* var, const std::pair<std::string, std::string>& name, int size, bool isSigned,
            int count);
  void setDefaultParam(RegisterTable& regs);
  bool loadParam(IniFileIO& ini, RegisterTable& regs, std::vector<std::string>& errors);
  // loadParam and checkParam reporting their problems as data, in the order of their messages.
  bool loadParamReport(IniFileIO& ini, RegisterTable& regs, std::vector<ParamProblem>& problems);
  bool checkParamReport(RegisterTable& regs, std::vector<ParamProblem>& problems);
  bool randomParam(RegisterTable& regs, bool useRandomRange, std::vector<std::string>& errors);
  const TParamInfo* getParamInfo(RegisterTable& regs, void* var, std::vector<std::string>& errors);
  const TParamInfo* getParamRange(RegisterTable& regs, void* var, std::vector<std::string>& errors,
                                  bool useRandomRange, int& lo, int& hi);

  const std::map<void*, TVarInfo>& bindings() const { return m_varInfo; }
  bool paramLoaded() const { return m_paramLoaded; }

 protected:
  std::map<void*, TVarInfo> m_varInfo;
  std::map<void*, void*> m_savedValue;  // snapshot buffers of size x count bytes, owned
  std::string m_instanceName;
  std::string m_name;
  bool m_paramLoaded = false;

 public:
  int m_dumpLevel = 0;      // golden reference files are written only when at least 1
  std::string m_outputDir;  // directory of the golden reference files
};
