#include "engine_context.h"

#include "kal_io.h"
#include "kerv_md_request.h"

#include <cerrno>
#include <cstring>

rmmi_context_struct *RMMI_PTR = nullptr;

namespace {

/* The S-registers that a reset puts back; s2, s32, s33 and s95 are set only at start-up. */
void set_user_s_registers(rmmi_s_register_struct *s_reg) {
    s_reg->s0 = 0;
    s_reg->s3 = '\r';
    s_reg->s4 = '\n';
    s_reg->s5 = 8;
    s_reg->s6 = 2;
    s_reg->s7 = 1;
    s_reg->s8 = 2;
    s_reg->s10 = 2;
}

/* Writes all of buf, as many writes as it takes, until the receiver refuses. */
void write_plainly(int fd, const void *buf, size_t len) {
    kal_write_all(fd, buf, len);
}

/* Set before the worker starts, read by the worker only. */
rmmi_output_writer_t output_writer = write_plainly;

} // namespace

extern "C" {

kal_bool rmmi_init(void) {
    /* A second call re-initialises the one context instead of leaking it. */
    rmmi_context_struct *context = RMMI_PTR;
    if (context == nullptr)
        context = static_cast<rmmi_context_struct *>(get_ctrl_buffer(sizeof(*context)));
    if (context == nullptr) {
        KERV_WARN("rmmi_init: Can't create rmmi context pointer : %s ", strerror(errno));
        return KAL_FALSE;
    }
    kal_mem_set(context, 0, sizeof(*context));
    RMMI_PTR = context;
    const kal_bool result = rmmi_init_context();
    context->fd = -1;
    return result;
}

kal_bool rmmi_init_context(void) {
    rmmi_context_struct *context = RMMI_PTR;
    set_user_s_registers(&context->s_reg);
    context->s_reg.s2 = '+';
    context->s_reg.s32 = 17;
    context->s_reg.s33 = 19;
    context->s_reg.s95 = 0;
    rmmi_custom_init_context();

    context->uart_stop_send_flag = 0;
    context->char_set = RMMI_CHSET_IRA;
    context->cmee_err = 0;
    context->uart_in_data_mode = KAL_FALSE;
    context->is_multi_cmd = 0;
    context->multi_cmd_error = 0;
    context->cmd_error_cause = 3;
    context->command_allow = KAL_FALSE;
    context->cmd_number = 0;
    context->is_sms_cmd = 0;
    context->isAtdAction_flag = 0;
    context->isAtdAbort_flag = 0;
    context->response_type = 255;
    context->cmd_from_tst = KAL_FALSE;
    for (void *&arg : context->arg_list)
        arg = nullptr;
    context->rsp_mode.echo_flag = RMMI_ECHO_ON;
    context->rsp_mode.suppress_flag = 0;
    context->register_status.gsm_state = 255;
    context->register_status.gprs_state = 255;
    context->register_status.act = 0;
    context->register_status.reserved = 0;
    context->register_status.cell_id = 65535;
    context->register_status.lac_value = 0;
    for (int channel = RMMI_FIRST_CHANNEL; channel < RMMI_MAX_CHANNEL_NUMBER; ++channel) {
        context->source[channel] = 0;
        context->port[channel] = 0;
    }
    context->error_report_mode = RMMI_SIMPLE_ERROR;
    return KAL_TRUE;
}

void rmmi_custom_init_context(void) {
    KERV_INFO(" OK");
}

void rmmi_read_custom_default_setting(rmmi_process_multi_cmd_type type,
                                      rmmi_modemd_target_type ctype,
                                      rmmi_result_code_format format) {
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr) {
        KERV_WARN(" ERROR");
        return;
    }
    context->rsp_mode.format = static_cast<kal_uint8>(format & 0xFF);
    context->fd_type = type;
    context->chip_type = ctype;
    KERV_INFO(" fd type is [%d], chip type is [%d]", type, ctype);
    KERV_INFO("[%s]", format != 0 ? "VERBOSE_FULL" : "PARITAL");
    KERV_FUNC(" OK");
}

rmmi_context_struct *rmmi_get_context_ptr(void) {
    return RMMI_PTR;
}

kal_uint32 rmmi_relay_target(const rmmi_context_struct *context) {
    return context->chip_type == RMMI_MODEMD_LTE ? MODEM_TARGET_LTE : MODEM_TARGET_MD;
}

void rmmi_reset(void) {
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr)
        return;
    set_user_s_registers(&context->s_reg);
    context->rsp_mode.echo_flag = RMMI_ECHO_ON;
    context->rsp_mode.ext_result_code = 1;
    context->error_report_mode = RMMI_SIMPLE_ERROR;
    context->rsp_mode.format = RMMI_VERBOSE_FULL_HEAD_TAIL;
    context->rsp_mode.suppress_flag = 0;
    context->char_set = RMMI_CHSET_IRA;
    context->fd = -1;
}

void rmmi_set_output_writer(rmmi_output_writer_t writer) {
    output_writer = writer != nullptr ? writer : write_plainly;
}

void rmmi_write_output(int fd, const void *buf, size_t len) {
    output_writer(fd, buf, len);
}

} // extern "C"
