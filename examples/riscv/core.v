// RV32I in two stages: one fetches, the other does all the rest. A taken jump costs one empty slot.
//
// The environment answers ecall while the instruction is in the second stage (env_call is high for
// one cycle); ebreak holds the core until resume.
`timescale 1ns / 1ns

module core #(
    parameter RESET_PC = 32'h0000_0000
) (
    input  wire        clk,
    input  wire        reset,
    output wire [31:0] fetch_address,
    input  wire [31:0] fetch_data,
    output wire [31:0] address,
    output wire        read,
    output wire [3:0]  write_lanes,  // one bit a byte, all zero when nothing is written
    output wire [31:0] write_data,
    input  wire [31:0] read_data,    // the whole word that holds the address, in the same cycle
    output wire        env_call,
    output wire        halted,
    input  wire        resume,
    output wire        retired,
    output wire        fault         // unknown instruction or misaligned access
);
    localparam LUI = 5'b01101, AUIPC = 5'b00101, JAL = 5'b11011, JALR = 5'b11001;
    localparam BRANCH = 5'b11000, LOAD = 5'b00000, STORE = 5'b01000;
    localparam IMMEDIATE = 5'b00100, REGISTER = 5'b01100, FENCE = 5'b00011, SYSTEM = 5'b11100;

    // First stage.
    reg  [31:0] pc;
    wire        redirect;
    wire [31:0] target;
    wire        stall;

    assign fetch_address = pc;

    // Second stage.
    reg         ex_valid;
    reg  [31:0] ex_pc;
    reg  [31:0] ex_instruction;

    always @(posedge clk) begin
        if (reset) begin
            pc <= RESET_PC;
            ex_valid <= 1'b0;
        end else if (!stall) begin
            pc <= redirect ? target : pc + 32'd4;
            ex_valid <= !redirect;
            ex_pc <= pc;
            ex_instruction <= fetch_data;
        end
    end

    // Decoding.
    wire [4:0] opcode = ex_instruction[6:2];
    wire [4:0] rd = ex_instruction[11:7];
    wire [2:0] funct3 = ex_instruction[14:12];
    wire [4:0] rs1 = ex_instruction[19:15];
    wire [4:0] rs2 = ex_instruction[24:20];
    wire [6:0] funct7 = ex_instruction[31:25];

    wire is_lui = opcode == LUI;
    wire is_auipc = opcode == AUIPC;
    wire is_jal = opcode == JAL;
    wire is_jalr = opcode == JALR;
    wire is_branch = opcode == BRANCH;
    wire is_load = opcode == LOAD;
    wire is_store = opcode == STORE;
    wire is_immediate = opcode == IMMEDIATE;
    wire is_register = opcode == REGISTER;
    wire is_fence = opcode == FENCE;
    wire is_system = opcode == SYSTEM;
    wire is_shift = funct3[1:0] == 2'b01;

    reg [31:0] immediate;
    always @* begin
        case (opcode)
            LUI, AUIPC: immediate = {ex_instruction[31:12], 12'd0};
            JAL: immediate = {{12{ex_instruction[31]}}, ex_instruction[19:12], ex_instruction[20],
                              ex_instruction[30:21], 1'b0};
            BRANCH: immediate = {{20{ex_instruction[31]}}, ex_instruction[7],
                                 ex_instruction[30:25], ex_instruction[11:8], 1'b0};
            STORE: immediate = {{20{ex_instruction[31]}}, ex_instruction[31:25],
                                ex_instruction[11:7]};
            default: immediate = {{20{ex_instruction[31]}}, ex_instruction[31:20]};
        endcase
    end

    reg known;
    always @* begin
        case (opcode)
            LUI, AUIPC, JAL, FENCE: known = 1'b1;
            JALR:      known = funct3 == 3'd0;
            BRANCH:    known = funct3[2:1] != 2'b01;
            LOAD:      known = funct3 != 3'd3 && funct3[2:1] != 2'b11;
            STORE:     known = funct3 < 3'd3;
            IMMEDIATE: known = funct3 == 3'd1 ? funct7 == 7'd0
                             : funct3 == 3'd5 ? (funct7 & 7'h5f) == 7'd0 : 1'b1;
            REGISTER:  known = funct7 == 7'd0
                             || (funct7 == 7'h20 && (funct3 == 3'd0 || funct3 == 3'd5));
            SYSTEM:    known = (ex_instruction & 32'hffef_ff80) == 32'd0;
            default:   known = 1'b0;
        endcase
        if (ex_instruction[1:0] != 2'b11) known = 1'b0;
    end

    // Execution.
    wire [31:0] rs1_value;
    wire [31:0] rs2_value;
    wire [31:0] result;
    wire        equal, less, below;

    alu alu (
        .funct(is_register || is_immediate ? funct3 : 3'd0),
        .alternate(funct7[5] && (is_register || (is_immediate && is_shift))),
        .compare(is_branch),
        .a(is_auipc || is_jal ? ex_pc : is_lui ? 32'd0 : rs1_value),
        .b(is_register || is_branch ? rs2_value : immediate),
        .result(result), .equal(equal), .less(less), .below(below));

    wire condition = (funct3[2] ? (funct3[1] ? below : less) : equal) ^ funct3[0];

    assign redirect = ex_valid && (is_jal || is_jalr || (is_branch && condition));
    assign target = is_branch ? ex_pc + immediate : {result[31:1], 1'b0};

    // Loads and stores: bytes and halves take the lane that the address names.
    wire        misaligned = (is_load || is_store)
                           && ((funct3[1:0] == 2'd1 && result[0])
                            || (funct3[1:0] == 2'd2 && result[1:0] != 2'd0));
    wire [4:0]  lane_shift = {result[1:0], 3'd0};
    wire [31:0] loaded_lane = read_data >> lane_shift;
    reg  [31:0] loaded;

    always @* begin
        case (funct3)
            3'd0:    loaded = {{24{loaded_lane[7]}}, loaded_lane[7:0]};
            3'd1:    loaded = {{16{loaded_lane[15]}}, loaded_lane[15:0]};
            3'd4:    loaded = {24'd0, loaded_lane[7:0]};
            3'd5:    loaded = {16'd0, loaded_lane[15:0]};
            default: loaded = loaded_lane;
        endcase
    end

    wire [3:0] lanes = funct3[1:0] == 2'd0 ? 4'b0001 : funct3[1:0] == 2'd1 ? 4'b0011 : 4'b1111;

    assign address = result;
    assign read = ex_valid && is_load;
    assign write_lanes = ex_valid && is_store ? lanes << result[1:0] : 4'd0;
    assign write_data = rs2_value << lane_shift;

    // Results.
    wire        links = is_jal || is_jalr;
    wire        write_back = retired && (is_lui || is_auipc || links || is_load || is_immediate
                                         || is_register);
    wire [31:0] written = links ? ex_pc + 32'd4 : is_load ? loaded : result;

    register_file registers (
        .clk(clk), .write(write_back), .rd(rd), .rd_value(written),
        .rs1(rs1), .rs2(rs2), .rs1_value(rs1_value), .rs2_value(rs2_value));

    assign env_call = ex_valid && is_system && !ex_instruction[20];
    assign halted = ex_valid && is_system && ex_instruction[20];
    assign stall = halted && !resume;
    assign retired = ex_valid && !stall && !reset;
    assign fault = ex_valid && (!known || misaligned);

    // What a reader of the waveform looks for first, under the names of the calling convention.
    wire [31:0] \x1/ra = registers.shown[1].value;
    wire [31:0] \x2/sp = registers.shown[2].value;
    wire [31:0] \x10/a0 = registers.shown[10].value;
endmodule
