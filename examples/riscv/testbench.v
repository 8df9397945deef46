// Runs program.hex on the core and judges the outcome: what arrives over the serial line, the exit
// code, the pins. Prints PASS or FAIL as its last line.
//
//   +program=FILE  words of the program, program.hex unless given
//   +dump=FILE     value-change dump of everything; none unless given
//   +cycles=N      repeat the program until N clock cycles have gone by
`timescale 1ns / 1ns

module testbench;
    parameter CLOCK_PERIOD = 10;
    parameter PINS = 8;

    localparam BAUD = 8;  // clock cycles a bit, as the program sets it
    localparam MOST_CYCLES = 200000;  // one pass of the program takes far less
    localparam EXIT_CALL = 93;
    localparam BREAK_CYCLES = 5;  // how long the debugger lets the core wait
    localparam EXPECTED_LENGTH = 43;
    localparam [8*EXPECTED_LENGTH-1:0] EXPECTED =
        "checks 62\nprimes 78\nfibonacci 55\nsorted 32\n";

    reg  clk;
    reg  reset;
    reg  resume;
    wire line;
    wire env_call, halted, retired, fault;
    tri1 [PINS-1:0] pads;  // pulled up on the board

    soc #(.PINS(PINS)) dut (
        .clk(clk), .reset(reset), .resume(resume), .uart_line(line), .pads(pads),
        .env_call(env_call), .halted(halted), .retired(retired), .fault(fault));

    // The board: four switches, connected a while after power-up, then moved now and then.
    reg       connected;
    reg [3:0] switches;
    assign pads[7:4] = connected ? switches : 4'bz;

    integer cycles, wanted_cycles, pass_started, passes, errors;
    integer instructions, environment_calls, breaks, held_for, characters;
    real    instructions_per_cycle;
    real    brightness;  // of the lamp on pin 0, as the eye sees it: 0 to 1
    time    last_character_at;
    event   character_arrived;
    event   program_ended;

    reg [8*256-1:0] program_file, dump_file;

    initial begin
        if (!$value$plusargs("program=%s", program_file)) program_file = "program.hex";
        if (!$value$plusargs("cycles=%d", wanted_cycles)) wanted_cycles = 0;
        if ($value$plusargs("dump=%s", dump_file)) begin
            $dumpfile(dump_file);
            $dumpvars(0, testbench);
        end
        load_program;
    end

    // Memory behind the program stays unknown, as it is after power-up.
    task load_program;
        integer file, words;
        reg [31:0] word;
        begin
            file = $fopen(program_file, "r");
            if (file == 0) begin
                $display("cannot open %0s", program_file);
                $display("FAIL");
                $finish;
            end
            words = 0;
            while ($fscanf(file, "%h", word) == 1) begin
                dut.memory[words] = word;
                words = words + 1;
            end
            $fclose(file);
        end
    endtask

    initial begin
        clk = 1'b0;
        forever #(CLOCK_PERIOD / 2) clk = ~clk;
    end

    initial begin
        reset = 1'b1;
        resume = 1'b0;
        connected = 1'b0;
        switches = 4'b0000;
        cycles = 0;
        pass_started = 0;
        passes = 0;
        errors = 0;
        instructions = 0;
        environment_calls = 0;
        breaks = 0;
        held_for = 0;
        characters = 0;
        instructions_per_cycle = 0.0;
        brightness = 0.0;
        repeat (4) @(negedge clk);
        reset = 1'b0;
        #2000 connected = 1'b1;
        forever #17333 switches = {switches[2:0], ~(switches[3] ^ switches[0])};
    end

    task report_error(input [8*40-1:0] what);
        begin
            errors = errors + 1;
            $display("%0t: %0s", $time, what);
        end
    endtask

    task finish_run;
        begin
            $display("%0d passes, %0d cycles, %0d instructions, %0.2f a cycle", passes, cycles,
                     instructions, instructions_per_cycle);
            if (errors == 0) $display("PASS");
            else $display("FAIL");
            $finish;
        end
    endtask

    // What the environment owes the program: answers to ecall, a debugger that resumes.
    task end_pass;
        begin
            passes = passes + 1;
            if (dut.cpu.registers.x[10] !== 32'd0) begin
                $display("failed check %0d", dut.cpu.registers.x[10]);
                report_error("the program reports a failure");
            end
            if (characters != EXPECTED_LENGTH) report_error("text of another length");
            if (breaks != 1) report_error("not exactly one ebreak");
            if (environment_calls != 1) report_error("not exactly one other ecall");
            if (brightness < 0.05 || brightness > 0.8) report_error("the lamp does not glow");
            -> program_ended;
            characters = 0;
            breaks = 0;
            environment_calls = 0;
            pass_started = cycles;
            if (cycles >= wanted_cycles || errors != 0) finish_run;
        end
    endtask

    always @(negedge clk) if (!reset) begin
        cycles = cycles + 1;
        if (retired) instructions = instructions + 1;
        if (cycles % 1024 == 0) instructions_per_cycle = 1.0 * instructions / cycles;
        if (fault !== 1'b0) begin
            report_error("unknown instruction or misaligned access");
            finish_run;
        end
        if (cycles - pass_started > MOST_CYCLES) begin
            report_error("the program does not end");
            finish_run;
        end
        held_for = halted ? held_for + 1 : 0;
        resume = held_for == BREAK_CYCLES;
        if (resume) breaks = breaks + 1;
        if (env_call) begin
            if (dut.cpu.registers.x[17] === EXIT_CALL) end_pass;
            else environment_calls = environment_calls + 1;
        end
    end

    // The other end of the serial line, which looks at the middle of each bit.
    reg [7:0] character;

    always begin : receiver
        integer k;
        @(negedge line);
        #(BAUD * CLOCK_PERIOD / 2);
        if (line !== 1'b0) report_error("start bit too short");
        for (k = 0; k < 8; k = k + 1) begin
            #(BAUD * CLOCK_PERIOD) character[k] = line;
        end
        #(BAUD * CLOCK_PERIOD);
        if (line !== 1'b1) report_error("stop bit missing");
        -> character_arrived;
    end

    always @(character_arrived) begin
        last_character_at = $time;
        if (passes == 0) $write("%c", character);
        if (character !== EXPECTED[8*(EXPECTED_LENGTH-1-characters) +: 8])
            report_error("unexpected character");
        characters = characters + 1;
    end

    always #(37 * CLOCK_PERIOD) brightness = 0.95 * brightness + (pads[0] === 1'b1 ? 0.05 : 0.0);
endmodule
