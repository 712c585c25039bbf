#include "checkasm/checkasm.h"
#include "checkasm/fusion_sizes.h"

CHECKASM_TEST(weight_pyramid) {
    const HdrDsp &ref = checkasm_ref(), &opt = checkasm_opt();
    if (checkasm_check_func(opt.fusion.weight_reduce_h != ref.fusion.weight_reduce_h, "weight_reduce_h"))
        check_reduce_h("weight_reduce_h 1040x780", ref.fusion.weight_reduce_h, opt.fusion.weight_reduce_h);
    if (checkasm_check_func(opt.fusion.weight_reduce_v != ref.fusion.weight_reduce_v, "weight_reduce_v"))
        check_reduce_v("weight_reduce_v 1040x780", ref.fusion.weight_reduce_v, opt.fusion.weight_reduce_v,
                       64 * 255);
}
